#include "Decompression.h"

#include "KVOSrvInterrupt.h"
#include "MalformedFile.h"
#include "MatrixFiles.h"
#include "mem_Allocator.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>

#include <zlib.h>
#include <zstd.h>
#include <zstd_errors.h>

namespace
{

class Gzip : public Decompression
{
public:
    explicit Gzip(InputFile const& file) : Decompression(file)
    {
        constexpr int kOnlyGzip = 16; // beside the logarithm of the window
        if (inflateInit2(&m_stream, MAX_WBITS + kOnlyGzip) != Z_OK)
            throw mem_OutOfMemory(std::size_t{1} << MAX_WBITS);
    }
    ~Gzip() override { inflateEnd(&m_stream); }

private:
    std::size_t Unpack(char* target, std::size_t bytes) override
    {
        if (m_complete && inflateReset(&m_stream) != Z_OK) // a file may hold several, one behind the other
            Refuse("is in no state to go on");
        m_complete = false;
        m_stream.next_in = m_next;
        m_stream.avail_in = static_cast<uInt>(m_left);
        m_stream.next_out = reinterpret_cast<Bytef*>(target);
        m_stream.avail_out = static_cast<uInt>(std::min<std::size_t>(bytes, UINT_MAX));
        uInt const room = m_stream.avail_out;
        int const result = inflate(&m_stream, Z_NO_FLUSH);
        m_next = m_stream.next_in;
        m_left = m_stream.avail_in;
        if (result == Z_MEM_ERROR)
            throw mem_OutOfMemory(std::size_t{1} << MAX_WBITS);
        if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR) // the last: nothing to do
            Refuse(m_stream.msg != nullptr ? m_stream.msg : "needs a dictionary");
        m_complete = result == Z_STREAM_END;
        return room - m_stream.avail_out;
    }
    bool IsComplete() const noexcept override { return m_complete; }

    z_stream m_stream{};
    bool m_complete = false;
};

class Zstd : public Decompression
{
public:
    explicit Zstd(InputFile const& file) : Decompression(file), m_stream(ZSTD_createDStream())
    {
        if (m_stream == nullptr || ZSTD_isError(ZSTD_DCtx_setParameter(m_stream, ZSTD_d_windowLogMax, kMostWindowBits)))
            throw mem_OutOfMemory(ZSTD_DStreamOutSize());
    }
    ~Zstd() override { ZSTD_freeDStream(m_stream); }

private:
    std::size_t Unpack(char* target, std::size_t bytes) override
    {
        ZSTD_inBuffer in{m_next, m_left, 0};
        ZSTD_outBuffer out{target, bytes, 0};
        std::size_t const wanted = ZSTD_decompressStream(m_stream, &out, &in);
        m_next += in.pos;
        m_left -= in.pos;
        if (ZSTD_isError(wanted)) {
            if (ZSTD_getErrorCode(wanted) == ZSTD_error_memory_allocation)
                throw mem_OutOfMemory(std::size_t{1} << kMostWindowBits);
            Refuse(ZSTD_getErrorName(wanted));
        }
        m_complete = wanted == 0;
        return out.pos;
    }
    bool IsComplete() const noexcept override { return m_complete; }

    static constexpr int kMostWindowBits = 27; // 128 MiB: what the zstd program takes, too, unless it is told to take more

    ZSTD_DStream* m_stream;
    bool m_complete = false;
};

} // namespace

std::unique_ptr<Decompression> Decompression::Of(InputFile const& file)
{
    constexpr unsigned char kGzip[] = {0x1f, 0x8b}, kZstd[] = {0x28, 0xb5, 0x2f, 0xfd};
    unsigned char begin[4] = {};
    file.ReadAt(0, begin, sizeof begin);
    if (std::memcmp(begin, kGzip, sizeof kGzip) == 0)
        return std::make_unique<Gzip>(file);
    if (std::memcmp(begin, kZstd, sizeof kZstd) == 0)
        return std::make_unique<Zstd>(file);
    return nullptr;
}

Decompression::Decompression(InputFile const& file) : m_file(file), m_buffer(std::make_unique<unsigned char[]>(kPiece)) {}

Decompression::~Decompression() = default;

std::size_t Decompression::Read(char* target, std::size_t bytes)
{
    std::size_t done = 0;
    while (done < bytes) {
        if (m_left == 0) {
            m_next = m_buffer.get();
            m_left = m_file.ReadAt(m_behind, m_next, kPiece);
            m_behind += static_cast<std::int64_t>(m_left);
            if (m_left == 0 && IsComplete())
                break;
        }
        KVOSrvInterrupt::Ask(); // a few bytes may stand for any length
        bool const isAtEnd = m_left == 0;
        std::size_t const got = Unpack(target + done, bytes - done); // something may be left in it at the end of the file
        done += got;
        if (isAtEnd && got == 0)
            throw MalformedFile::AtByte(Place(), "the file ends here, in the middle of what it holds compressed");
    }
    return done;
}

void Decompression::Refuse(char const* reason) const
{
    throw MalformedFile::AtByte(Place(), std::string("what is compressed here is damaged: ") + reason);
}
