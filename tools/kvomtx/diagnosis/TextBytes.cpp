#include "TextBytes.h"

#include "Errors.h"

#include <zlib.h>
#include <zstd.h>

#include <array>
#include <string_view>

namespace
{

constexpr unsigned kPiece = 1U << 18;

} // namespace

class TextBytes::Source
{
public:
    explicit Source(std::string path) : m_path(std::move(path)) {}
    virtual ~Source() = default;
    /// Up to kPiece bytes; none at the end.
    virtual std::size_t Read(char* target) = 0;

protected:
    [[noreturn]] void Refuse() const
    {
        throw ToolError(ExitCode::kUnreadable,
                        m_path + ": cannot be read again for its lines; keep it as it is until the command has ended");
    }

private:
    std::string m_path;
};

namespace
{

// Of a plain file, too, which zlib hands through.
class Gzip : public TextBytes::Source
{
public:
    explicit Gzip(std::string const& path) : Source(path), m_file(gzopen(path.c_str(), "rb"))
    {
        if (m_file == nullptr || gzbuffer(m_file.get(), kPiece) != 0)
            Refuse();
    }
    std::size_t Read(char* target) override
    {
        int const got = gzread(m_file.get(), target, kPiece);
        if (got < 0)
            Refuse();
        return static_cast<std::size_t>(got);
    }

private:
    struct Close {
        void operator()(gzFile_s* file) const noexcept { gzclose(file); }
    };
    std::unique_ptr<gzFile_s, Close> m_file;
};

class Zstd : public TextBytes::Source
{
public:
    Zstd(std::string const& path, std::FILE* file) : Source(path), m_file(file), m_stream(ZSTD_createDStream())
    {
        if (m_stream == nullptr)
            Refuse();
    }
    std::size_t Read(char* target) override
    {
        ZSTD_outBuffer out{target, kPiece, 0};
        while (out.pos == 0) {
            if (m_in.pos == m_in.size)
                m_in = {m_packed.data(), std::fread(m_packed.data(), 1, m_packed.size(), m_file.get()), 0};
            bool const isAtEnd = m_in.size == 0;
            if (ZSTD_isError(ZSTD_decompressStream(m_stream.get(), &out, &m_in)))
                Refuse();
            if (isAtEnd)
                break;
        }
        return out.pos;
    }

private:
    struct Close {
        void operator()(std::FILE* file) const noexcept { std::fclose(file); }
        void operator()(ZSTD_DStream* stream) const noexcept { ZSTD_freeDStream(stream); }
    };
    std::unique_ptr<std::FILE, Close> m_file;
    std::unique_ptr<ZSTD_DStream, Close> m_stream;
    std::array<char, kPiece> m_packed;
    ZSTD_inBuffer m_in{nullptr, 0, 0};
};

std::unique_ptr<TextBytes::Source> Open(std::string const& path)
{
    constexpr std::string_view kZstd = "\x28\xb5\x2f\xfd";
    std::FILE* const file = std::fopen(path.c_str(), "rb");
    if (file == nullptr)
        return std::make_unique<Gzip>(path); // which refuses
    char begin[4];
    bool const isZstd = std::string_view(begin, std::fread(begin, 1, sizeof begin, file)) == kZstd;
    std::rewind(file);
    if (isZstd)
        return std::make_unique<Zstd>(path, file);
    std::fclose(file);
    return std::make_unique<Gzip>(path);
}

} // namespace

TextBytes::TextBytes(std::string const& path) : m_source(Open(path)), m_buffer(std::make_unique<char[]>(kPiece)) {}

TextBytes::~TextBytes() = default;

bool TextBytes::Fill()
{
    m_next = m_buffer.get();
    m_end = m_next + m_source->Read(m_buffer.get());
    return m_next != m_end;
}
