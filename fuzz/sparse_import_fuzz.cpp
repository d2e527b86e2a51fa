// Every importer of sparse matrix files, through the public interface, with files that libFuzzer makes up.
//
// The first byte of an input chooses the format, the second by how many pieces of 64 KiB of zeros a binary file goes on behind the input:
// the chunks of format 6 are 1.5 MiB long. The rest is the file's begin.
//
// A few bytes can ask for a matrix of 2^31 - 1 empty rows, which is sound but takes seconds: sizes that nothing else in the file stands
// for are cut to kManyRows, so that the time goes into reading. The number of files that were read is printed at the end.

#include "FuzzSupport.h"

#include "KVOSrvMtxExceptions.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace
{

constexpr std::uint32_t kManyRows = 4096;

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

// Blanks the last digits of the indices above kManyRows that an int holds; the larger ones are refused anyway.
void CutIndices(std::string& text)
{
    int field = 0;
    for (std::size_t begin = 0, end; begin < text.size(); begin = end) {
        end = begin;
        while (end < text.size() && !std::isspace(static_cast<unsigned char>(text[end])))
            ++end;
        std::size_t digits = begin + (text[begin] == '+');
        std::uint64_t value = 0;
        while (digits < end && IsDigit(text[digits]) && value <= INT_MAX)
            value = 10 * value + static_cast<std::uint64_t>(text[digits++] - '0');
        if (field != 2 && digits == end)
            for (; value > kManyRows && value <= INT_MAX; value /= 10)
                text[--digits] = ' ';
        if (end == begin)
            ++end;
        else
            field = (field + 1) % 3;
    }
}

// A dense file without elements has nothing but its header to say how many rows or columns there are.
void CutSizes(std::string& bytes)
{
    std::uint32_t header[2] = {};
    std::size_t const length = std::min(bytes.size(), sizeof header);
    std::memcpy(header, bytes.data(), length);
    for (std::uint32_t& dimension : header)
        if (header[0] * std::uint64_t{header[1]} == 0 && dimension <= INT_MAX)
            dimension %= kManyRows;
    std::memcpy(bytes.data(), header, length);
}

/// Says at the end how many files went into an importer.
class ImportCounter
{
public:
    ~ImportCounter() { std::fprintf(stderr, "%lld files were imported or refused.\n", m_count); }
    void Count() { ++m_count; }

private:
    long long m_count = 0;
};

// What was read is written and read again; the second time nothing changes.
void CheckRoundTrip(KVOSrvSparseMatrix const& matrix, int exportFormat, int importFormat)
{
    static MemoryFile file;
    file.SetContent("", 0);
    matrix.Export(file.Path(), exportFormat);
    KVOSrvSparseMatrix again(0, 0);
    again.Import(file.Path(), importFormat);
    if (exportFormat != 3) {
        Check(ContentOf(again) == ContentOf(matrix), "a binary round trip keeps the matrix");
        return;
    }
    std::string const text = file.Content();
    file.SetContent("", 0);
    again.Export(file.Path(), 3);
    Check(file.Content() == text, "a second text export repeats the first");
}

void CheckContent(KVOSrvSparseMatrix const& matrix, int format, std::size_t size)
{
    ContentOf(matrix);
    if (format == 2 || format == 3)
        CheckRoundTrip(matrix, 3, 2);
    if (format == 7)
        CheckRoundTrip(matrix, 7, 7);
    if (format == 0 && size % 16 == 0) // writes 1.5 MiB
        CheckRoundTrip(matrix, 6, 1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    constexpr int kFormats[] = {0, 1, 2, 3, 6, 7};
    constexpr std::size_t kPiece = 65536;
    if (size < 2)
        return 0;
    static MemoryFile file;
    int const format = kFormats[data[0] % std::size(kFormats)];
    std::string bytes(reinterpret_cast<char const*>(data) + 2, size - 2);
    std::size_t zeros = 0;
    if (format == 2 || format == 3)
        CutIndices(bytes);
    if (format == 7)
        CutSizes(bytes);
    if (format == 1 || format == 7)
        zeros = data[1] % 4 * kPiece;
    if (format == 6)
        zeros = data[1] % 64 * kPiece;
    file.SetContent(bytes, zeros);
    static ImportCounter counter;
    counter.Count();

    KVOSrvSparseMatrix matrix(3, 5);
    matrix.AddData(2, 1, 7.0);
    matrix.EndAssembly();
    std::vector<std::uint64_t> const before = ContentOf(matrix);
    bool imported = false;
    try {
        matrix.Import(file.Path(), format);
        imported = true;
        CheckContent(matrix, format, size);
    } catch (KVOSrvMtxMalformedFile const& fault) {
        Check(!imported, "what was exported can be imported");
        Check((fault.Line() > 0) != (fault.Byte() >= 0) && fault.Expected()[0] != '\0', "a refusal says where and why");
    } catch (std::bad_alloc const&) {
    }
    if (!imported)
        Check(ContentOf(matrix) == before, "a file that is refused changes nothing");
    return 0;
}
