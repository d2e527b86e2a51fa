#include "Diagnosis.h"

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <locale.h>
#include <string>
#include <utility>

namespace
{

constexpr std::size_t kLongestToken = 4096; // longer ones are cut; no number is that long

/// The words of a text with the lines they stand on.
class Tokens
{
public:
    explicit Tokens(std::string const& path) : m_file(path, std::ios::binary) {}

    bool Next(std::string& token)
    {
        token.clear();
        std::streambuf& buffer = *m_file.rdbuf();
        int c = buffer.sbumpc();
        for (; c != EOF && std::isspace(c); c = buffer.sbumpc())
            m_line += c == '\n';
        for (; c != EOF && !std::isspace(c); c = buffer.sbumpc())
            if (token.size() < kLongestToken)
                token.push_back(static_cast<char>(c));
        if (c != EOF)
            buffer.sungetc();
        return !token.empty();
    }

    std::int64_t Line() const noexcept { return m_line; }

private:
    std::ifstream m_file;
    std::int64_t m_line = 1;
};

bool IsIndex(std::string const& token)
{
    std::size_t const first = token[0] == '+';
    if (first == token.size() || token.find_first_not_of("0123456789", first) != std::string::npos)
        return false;
    errno = 0;
    long long const value = std::strtoll(token.c_str(), nullptr, 10);
    return errno == 0 && value >= 1 && value <= INT32_MAX;
}

bool IsValue(std::string const& token)
{
    static locale_t const s_cLocale = newlocale(LC_ALL_MASK, "C", nullptr); // numbers have a point under every locale
    char* end = nullptr;
    strtod_l(token.c_str(), &end, s_cLocale);
    return *end == '\0' && token.find('(') == std::string::npos;
}

} // namespace

std::string Quoted(std::string_view word)
{
    constexpr std::size_t kShown = 24;
    std::string text = std::string(word.substr(0, kShown)) + (word.size() > kShown ? "..." : "");
    for (char& c : text)
        if (!std::isprint(static_cast<unsigned char>(c)))
            c = '?';
    return "\"" + text + "\"";
}

std::string DiagnoseTriplets(std::string const& path)
{
    constexpr char const* kExpected[] = {"a row number (whole, from 1 to 2147483647)", "a column number (whole, from 1 to 2147483647)",
                                         "a value"};
    Tokens tokens(path);
    std::string token;
    for (int part = 0;; part = (part + 1) % 3) {
        std::int64_t const line = tokens.Line();
        bool const found = tokens.Next(token);
        if (!found && part == 0)
            return {};
        if (!found)
            return "line " + std::to_string(line) + ": expected " + kExpected[part] + ", found the end of the file";
        if (part == 2 ? !IsValue(token) : !IsIndex(token))
            return "line " + std::to_string(tokens.Line()) + ": expected " + kExpected[part] + ", found " + Quoted(token);
    }
}

std::string RecogniseOtherKind(std::string const& path)
{
    constexpr std::pair<std::string_view, std::string_view> kKinds[] = {
        {"%%MatrixMarket", "this is a Matrix Market file; name it .mtx or say so with the format \"mtx\""},
        {"\x89HDF\r\n\x1a\n", "this is a database; name the matrix in it as FILE.sim:ID, kvomtx db ls shows the numbers"},
        {"\x89PNG", "this is a picture"},
    };
    std::string begin(16, '\0');
    std::ifstream file(path, std::ios::binary);
    file.read(begin.data(), static_cast<std::streamsize>(begin.size()));
    for (auto const& [mark, text] : kKinds)
        if (begin.starts_with(mark))
            return std::string(text);
    return {};
}

std::string Diagnose(std::string const& path, int format)
{
    if (std::string const kind = RecogniseOtherKind(path); !kind.empty())
        return "byte 0: expected a file of format " + std::to_string(format) + ", but " + kind;
    std::string const found = format == 0                  ? DiagnoseRecords(path)
                              : format == 7                ? DiagnoseDense(path)
                              : format == 1 || format == 6 ? DiagnoseChunks(path, format == 1)
                                                           : DiagnoseTriplets(path);
    return found.empty() ? "has more entries than a matrix can have (2147483647)" : found;
}
