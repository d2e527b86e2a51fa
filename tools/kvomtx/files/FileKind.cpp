#include "FileKind.h"

#include <fstream>
#include <optional>
#include <string_view>

std::string RecogniseOtherKind(std::string const& path, MatrixFormat format)
{
    struct Kind {
        std::string_view mark;
        std::optional<MatrixFormat> format;
        char const* text;
    };
    constexpr Kind kKinds[] = {
        {"%%MatrixMarket", MatrixFormat::kMatrixMarket, "this is a Matrix Market file; name it .mtx or say so with the format \"mtx\""},
        {"\x89HDF\r\n\x1a\n", MatrixFormat::kDatabase,
         "this is a database; name the matrix in it as FILE.sim:ID, kvomtx db ls shows the numbers"},
        {"\x89PNG", {}, "this is a picture"},
    };
    std::string begin(16, '\0');
    std::ifstream file(path, std::ios::binary);
    file.read(begin.data(), static_cast<std::streamsize>(begin.size()));
    for (Kind const& kind : kKinds)
        if (begin.starts_with(kind.mark) && kind.format != format)
            return kind.text;
    return {};
}
