// The readers of other programs' matrix files, with bytes that libFuzzer makes up: each is read or refused with its place, and what was
// read lies inside of the matrix and is read again from a Matrix Market file.
//
// The first byte of an input chooses the format, or that the content tells it, and the part of a complex matrix.

#include "FuzzSupport.h"

#include "KVOSimException.h"
#include "KVOSrvMatrixFile.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvProductMemory.h"

#include <new>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace
{

constexpr std::size_t kMostDigits = 6;

/// Says at the end how many files were read.
class ReadCounter
{
public:
    ~ReadCounter() { std::fprintf(stderr, "%lld of %lld files were read.\n", m_read, m_all); }
    void Count() { ++m_all; }
    void CountRead() { ++m_read; }

private:
    long long m_all = 0;
    long long m_read = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    using enum KVOSrvMatrixFormat;
    constexpr KVOSrvMatrixFormat kFormats[] = {kHarwellBoeing, kNumpy, kScipy, kUnknown};
    if (size < 1)
        return 0;
    static MemoryFile file, market;
    static ReadCounter counter;
    counter.Count();
    KVOSrvMatrixFormat const format = kFormats[data[0] % 4];
    auto const part = static_cast<KVOSrvMatrixPart>(data[0] / 4 % 3);
    std::string const bytes(reinterpret_cast<char const*>(data) + 1, size - 1);
    bool const isText = format == kHarwellBoeing || (format == kUnknown && !bytes.empty() && bytes[0] >= '\t' && bytes[0] <= '9');
    file.SetContent(isText ? CutNumbers(bytes, kMostDigits) : bytes, 0);
    KVOSrvProductMemory const limit(64 << 20);
    try {
        auto const matrix = KVOSrvMatrixFile::Read(file.Path(), format, nullptr, part);
        counter.CountRead();
        std::vector<std::uint64_t> const content = ContentOf(*matrix);
        matrix->ExportMatrixMarket(market.Path());
        auto const again = KVOSrvMatrixFile::Read(market.Path());
        Check(again->NumberOfRows() == matrix->NumberOfRows() && again->NumberOfColumns() == matrix->NumberOfColumns(),
              "it has its size again");
    } catch (KVOSrvMtxMalformedFile const& fault) {
        Check((fault.Line() > 0) != (fault.Byte() >= 0) && fault.Expected()[0] != '\0', "a refusal says where and why");
    } catch (KVOSimException const&) {            // a .mat file that HDF5 cannot read
    } catch (KVOSrvMtxUnsupportedImpFmt const&) { // a database, by its mark
    } catch (KVOSrvMtxIllegalInput const&) {      // more memory than the limit
    } catch (std::bad_alloc const&) {
    }
    return 0;
}
