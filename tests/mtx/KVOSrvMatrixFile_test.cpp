// Matrix files of every format: told apart by what they hold, and read compressed.

#include "KVOSrvInterrupt.h"
#include "KVOSrvMatrixFile.h"
#include "KVOSrvProductMemory.h"
#include "SparseFiles.h"

#include <zlib.h>
#include <zstd.h>

namespace
{

std::string const kMarket = "%%MatrixMarket matrix coordinate ";

std::string Gzip(std::string const& text)
{
    z_stream stream{};
    std::string packed(text.size() + 1024, '\0');
    deflateInit2(&stream, 9, Z_DEFLATED, MAX_WBITS + 16, 9, Z_DEFAULT_STRATEGY);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    deflate(&stream, Z_FINISH);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return packed;
}

std::string Zstd(std::string const& text)
{
    std::string packed(ZSTD_compressBound(text.size()), '\0');
    packed.resize(ZSTD_compress(packed.data(), packed.size(), text.data(), text.size(), 3));
    return packed;
}

class KVOSrvMatrixFileTest : public SparseFilesTest
{
protected:
    std::unique_ptr<KVOSrvSparseMatrix> Read(std::string const& bytes, KVOSrvMatrixPart part = KVOSrvMatrixPart::kWhole)
    {
        WriteFile(m_path, bytes);
        return KVOSrvMatrixFile::Read(m_path.c_str(), KVOSrvMatrixFormat::kUnknown, nullptr, part);
    }
    void ExpectRefusal(std::string const& bytes, std::string const& report)
    {
        SCOPED_TRACE(report);
        ExpectMalformed([&] { Read(bytes); }, report);
    }
};

TEST_F(KVOSrvMatrixFileTest, EndsWhereTheHostWantsAnEnd)
{
    struct Stop {
    };
    struct Host {
        int asked = 0, last = 0;
        static void Check(void* context)
        {
            if (auto& [asked, last] = *static_cast<Host*>(context); ++asked == last)
                throw Stop();
        }
    };
    KVOSrvSparseMatrix matrix(0, 0);
    for (unsigned k = 0; k < 40000; ++k)
        matrix.AddData(k / 200, k % 200, 1.0 + k);
    matrix.EndAssembly();
    std::string const dense = m_path + ".dense", packed = m_path + ".zst";
    matrix.ExportMatrixMarket(m_path.c_str());
    WriteFile(packed, Zstd(ReadFile(m_path)));
    std::function<void()> const works[] = {
        [&] { matrix.ExportMatrixMarket(m_path.c_str()); }, [&] { KVOSrvMatrixFile::Read(m_path.c_str()); },
        [&] { matrix.Export(dense.c_str(), 7); },           [&] { KVOSrvMatrixFile::Read(dense.c_str()); },
        [&] { KVOSrvMatrixFile::Read(packed.c_str()); },
    };
    for (auto const& work : works) {
        Host host;
        auto const run = [&] {
            KVOSrvInterrupt const interrupt(&Host::Check, &host);
            {
                KVOSrvInterrupt const none(nullptr, nullptr);
                work();
            }
            EXPECT_EQ(host.asked, 0);
            work();
        };
        run();
        EXPECT_GT(host.asked, 1) << &work - works;
        for (int const last : {1, host.asked}) {
            host = {0, last};
            EXPECT_THROW(run(), Stop);
        }
        work(); // nobody is asked any more
    }
}

TEST_F(KVOSrvMatrixFileTest, ReadsThePartsOfComplexMatrices)
{
    auto const part = [&](std::string const& text, KVOSrvMatrixPart which) { return ContentOf(*Read(text, which)).entries; };
    using enum KVOSrvMatrixPart;
    std::string const hermitian = kMarket + "complex hermitian\n2 2 2\n1 1 3 0\n2 1 1.5D0 -2\n";
    EXPECT_EQ(part(hermitian, kReal), (std::vector<Entry>{MakeEntry(0, 0, 3), MakeEntry(0, 1, 1.5), MakeEntry(1, 0, 1.5)}));
    EXPECT_EQ(part(hermitian, kImaginary), (std::vector<Entry>{MakeEntry(0, 0, 0), MakeEntry(0, 1, 2), MakeEntry(1, 0, -2)}));
    std::string const array = "%%MatrixMarket matrix array complex general\n1 3\n0 0\n0 4\n5 0\n"; // of 0 in both parts nothing is stored
    EXPECT_EQ(part(array, kImaginary), (std::vector<Entry>{MakeEntry(0, 1, 4), MakeEntry(0, 2, 0)}));
    ExpectRefusal(array, "line 1: a complex matrix cannot be held");
    ExpectMalformed([&] { part(kMarket + "complex general\n1 1 1\n1 1 2\n", kReal); }, "line 3: expected an imaginary part");
}

TEST_F(KVOSrvMatrixFileTest, ReadsCompressedTexts)
{
    std::string text = kMarket + "real general\n300 300 90000\n", triplets;
    for (int k = 0; k < 90000; ++k) {
        std::string const record = std::to_string(k / 300 + 1) + " " + std::to_string(k % 300 + 1) + " " + std::to_string(k * 0.37) + "\n";
        text += record;
        triplets += record;
    }
    Content const expected = ContentOf(*Read(text));
    for (auto const& pack : {Gzip, Zstd})
        for (std::string const& whole : {text, triplets}) {
            std::size_t const half = whole.size() / 2;
            std::string const packed = pack(whole.substr(0, half)) + pack(whole.substr(half)); // one behind the other
            EXPECT_EQ(ContentOf(*Read(packed)), expected);
            KVOSrvProductMemory const limit(8 << 20);
            EXPECT_EQ(ContentOf(*Read(packed)), expected);
            std::string const end = std::to_string(packed.size() - 5);
            ExpectRefusal(packed.substr(0, packed.size() - 5),
                          "byte " + end + ": the file ends here, in the middle of what it holds compressed");
            if (std::string damaged = packed; pack == Gzip) { // the other keeps no checksum unless it is told to
                damaged[packed.size() / 3] ^= 0x55;
                ExpectRefusal(damaged, "");
            }
            ExpectRefusal(packed + "more", "byte "); // no third one
            ExpectRefusal(pack(whole.substr(0, half) + "\n?\n"),
                          "line " + std::to_string(std::count(whole.begin(), whole.begin() + half, '\n') + 2));
        }
}

// What takes little in the file takes little in memory.
TEST_F(KVOSrvMatrixFileTest, RefusesCompressedTextsWithoutAnEnd)
{
    for (auto const& pack : {Gzip, Zstd}) {
        ExpectRefusal(pack(kMarket + "real general\n%" + std::string(40 << 20, 'x')), "byte ");
        ExpectRefusal(pack("1 1 " + std::string(40 << 20, '1')), "byte ");
    }
    std::string const window = {'\x28', '\xb5', '\x2f', '\xfd', '\0', '\xb8'}; // of 8 GiB
    ExpectRefusal(window + std::string(20, '\0'), "byte 0: what is compressed here is damaged: Frame requires too much memory");
}

TEST_F(KVOSrvMatrixFileTest, TellsFormatsByNameAndContent)
{
    using enum KVOSrvMatrixFormat;
    auto const toRead = [&](std::string const& name, std::string const& bytes) {
        WriteFile(m_folder / name, bytes);
        return KVOSrvMatrixFile::FormatToRead((m_folder / name).c_str());
    };
    Half const half = Half::Random(5, 6, 1);
    std::string const dense = Bytes(2, 1, 2, 1) + Bytes(1.0) + Bytes(2.0);
    std::string const record = Bytes(4, 1, 4, 16, 1, 1) + Bytes(7.0) + Bytes(16);
    EXPECT_EQ(toRead("a.txt", kMarket + "real"), kMatrixMarket); // the mark counts more than the ending
    EXPECT_EQ(toRead("a.MTX.GZ", "nothing"), kMatrixMarket);
    EXPECT_EQ(toRead("a.chunks", "nothing"), kChunksAsStored);
    EXPECT_EQ(toRead("a", half.File()), kChunksAsStored);
    EXPECT_EQ(toRead("a", dense), kDense);
    EXPECT_EQ(toRead("a", dense.substr(0, 31)), kUnknown);
    EXPECT_EQ(toRead("a", record), kRecords);
    EXPECT_EQ(toRead("a", "\n 1 2\t3e5 nothing else is looked at"), kTriplets);
    EXPECT_EQ(toRead("a", Zstd("1 2 3")), kTriplets);
    EXPECT_EQ(toRead("a", "1 2"), kUnknown);
    EXPECT_EQ(toRead("a", "\x89HDF\r\n\x1a\n"), kDatabase);
    EXPECT_EQ(KVOSrvMatrixFile::FormatToRead((m_folder / "none").c_str()), kUnknown);
    ExpectRefusal("?", "byte 0: this is like no matrix file");
    ExpectRefusal("1 2", "byte 0: this is like no matrix file");
    WriteFile(m_path, Gzip(dense));
    ExpectMalformed([&] { KVOSrvMatrixFile::Read(m_path.c_str(), kDense); }, "byte 0: this is compressed");
    EXPECT_THROW(KVOSrvMatrixFile::Read(m_path.c_str(), kNodes), KVOSrvMtxUnsupportedImpFmt);
}

} // namespace
