#include "FileKind.h"

#include <fstream>

std::string RecogniseOtherKind(std::string const& path, MatrixFormat format)
{
    MatrixFormat const found = KVOSrvMatrixFile::FormatOfContent(path.c_str(), true);
    if (found == format)
        return {};
    if (found == MatrixFormat::kDatabase)
        return "this is a database; name the matrix in it as FILE.sim:ID, kvomtx db ls shows the numbers";
    if (found != MatrixFormat::kUnknown)
        return "this is a " + DescribeFormat(found) + " file; leave the format out";
    constexpr char kPicture[] = "\x89PNG";
    char begin[5] = "";
    std::ifstream(path, std::ios::binary).read(begin, 4);
    return std::string(begin) == kPicture ? "this is a picture" : "";
}
