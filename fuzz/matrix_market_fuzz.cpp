// The reader of Matrix Market files, with texts that libFuzzer makes up: each is read or refused with its line, and what was read survives
// being written and read again.

#include "FuzzSupport.h"

#include "KVOSrvMtxExceptions.h"

#include <new>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace
{

constexpr std::size_t kMostDigits = 4;

// Zeros of a matrix that equals its transpose may come back in other places.
void CheckRoundTrip(KVOSrvSparseMatrix const& matrix)
{
    static MemoryFile file;
    matrix.ExportMatrixMarket(file.Path());
    std::string const text = file.Content();
    auto const again = KVOSrvSparseMatrix::ReadMatrixMarket(file.Path());
    Check(text.find("symmetric\n") != std::string::npos || ContentOf(*again) == ContentOf(matrix),
          "a matrix that was written is read again");
    again->ExportMatrixMarket(file.Path());
    Check(file.Content() == text, "and written again");
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
    file.SetContent(CutNumbers(text, kMostDigits), 0);
    bool imported = false;
    try {
        auto const matrix = KVOSrvSparseMatrix::ReadMatrixMarket(file.Path());
        imported = true;
        ContentOf(*matrix);
        CheckRoundTrip(*matrix);
    } catch (KVOSrvMtxMalformedFile const& fault) {
        Check(!imported, "what was exported can be imported");
        Check(fault.Line() > 0 && fault.Expected()[0] != '\0', "a malformed text is refused with the line and the reason");
    } catch (std::bad_alloc const&) {
    }
    return 0;
}
