// The reader of Matrix Market files, with texts that libFuzzer makes up: each is read or refused with its line, and what was read survives
// being written and read again.

#include "FuzzSupport.h"

#include "Errors.h"
#include "MatrixMarket.h"
#include "OutputFile.h"
#include "Progress.h"

#include <cctype>
#include <cstring>
#include <filesystem>
#include <new>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace
{

// The longest number of each text: a sound file may ask for two thousand million empty rows, which takes seconds.
constexpr std::size_t kMostDigits = 4;

std::string CutNumbers(std::string text)
{
    std::size_t digits = 0;
    for (char& c : text) {
        digits = std::isdigit(static_cast<unsigned char>(c)) ? digits + 1 : 0;
        if (digits > kMostDigits && digits < kMostDigits + 6) // longer ones are refused
            c = ' ';
    }
    return text;
}

void CheckRoundTrip(KVOSrvSparseMatrix const& matrix)
{
    static std::string const path = std::filesystem::temp_directory_path() / ("matrix_market_fuzz" + std::to_string(getpid()) + ".mtx");
    OutputFile file(path);
    WriteMatrixMarket(matrix, false, file);
    Progress progress("");
    auto const again = ReadMatrixMarket(file.TemporaryPath(), progress);
    Check(ContentOf(*again) == ContentOf(matrix), "a matrix that was written is read again");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    static MemoryFile file;
    // The banner is in front of most inputs, so that the time goes into what is behind it.
    std::string text(reinterpret_cast<char const*>(data), size);
    if (size > 0 && data[0] % 8 != 0)
        text = std::string("%%MatrixMarket matrix ") + (data[0] % 2 ? "coordinate" : "array") + (data[0] % 4 < 2 ? " real" : " integer") +
               (data[0] % 3 == 0 ? " symmetric\n" : " general\n") + text.substr(1);
    file.SetContent(CutNumbers(text), 0);
    Progress progress("");
    try {
        auto const matrix = ReadMatrixMarket(file.Path(), progress);
        ContentOf(*matrix);
        if (size % 64 == 0) // writes to a file with a name
            CheckRoundTrip(*matrix);
    } catch (ToolError const& error) {
        Check(error.Code() == ExitCode::kUnreadable, "a malformed text is said to be unreadable");
        Check(std::strstr(error.what(), ": line ") != nullptr, "the line is said");
    } catch (std::bad_alloc const&) {
    }
    return 0;
}
