#include "FileKind.h"

#include <fstream>
#include <string_view>
#include <utility>

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
