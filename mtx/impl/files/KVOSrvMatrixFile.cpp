// Which format a file is of, and the way to its reader.

#include "KVOSrvMatrixFile.h"

#include "HarwellBoeing.h"
#include "InputText.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseMatrix.h"
#include "MalformedFile.h"
#include "MatlabFile.h"
#include "MatrixMarket.h"
#include "MatrixShapes.h"
#include "NumpyFiles.h"

#include <algorithm>
#include <string>
#include <string_view>

using enum KVOSrvMatrixFormat;

namespace
{

constexpr char kSource[] = "mtx/impl/KVOSrvMatrixFile";

struct Name {
    std::string_view word;
    KVOSrvMatrixFormat format;
};

constexpr Name kNames[] = {
    {"mtx", kMatrixMarket}, {"sim", kDatabase}, {"records", kRecords}, {"triplets", kTriplets}, {"txt", kTriplets},
    {"nodes", kNodes},      {"csv", kLines},    {"chunks", kChunks},   {"dense", kDense},       {"hb", kHarwellBoeing},
    {"rb", kHarwellBoeing}, {"npz", kScipy},    {"npy", kNumpy},       {"mat", kMatlab},
};

KVOSrvMatrixFormat FormatOf(std::string_view word)
{
    auto const* const name = std::ranges::find(kNames, word, &Name::word);
    return name != std::end(kNames) ? name->format : kUnknown;
}

std::string LowerCase(char const* text)
{
    std::string lower = text != nullptr ? text : "";
    std::ranges::transform(lower, lower.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return lower;
}

struct Mark {
    std::string_view bytes; // at the begin
    KVOSrvMatrixFormat format;
};

constexpr std::string_view kHdf5 = "\x89HDF\r\n\x1a\n";
constexpr Mark kMarks[] = {
    {MatrixMarket::kMark, kMatrixMarket}, {kHdf5, kDatabase}, {"PK\3\4", kScipy}, {"\x93NUMPY", kNumpy},
    {"MATLAB 5.0 MAT-file", kMatlab}, // which its reader refuses in its own words
    {"MATLAB 7.3 MAT-file", kMatlab},
};

/// The text that a file begins with.
struct Beginning {
    explicit Beginning(char const* path)
    {
        InputText const text(path);
        isCompressed = text.IsCompressed();
        fileBytes = text.FileBytes();
        try {
            length = text.ReadAt(0, bytes, sizeof bytes);
        } catch (MalformedFile const&) { // its reader will say where
        }
    }
    std::string_view View() const noexcept { return {bytes, length}; }

    char bytes[4096];
    std::size_t length = 0;
    bool isCompressed;
    std::int64_t fileBytes;
};

KVOSrvMatrixFormat FormatOfMarks(std::string_view text)
{
    for (Mark const& mark : kMarks)
        if (text.starts_with(mark.bytes))
            return mark.format;
    return HarwellBoeing::LooksLike(text) ? kHarwellBoeing : kUnknown;
}

KVOSrvMatrixFormat FormatOfShape(Beginning& begin)
{
    using namespace MatrixShapes;
    if (!begin.isCompressed) {
        if (LooksLikeRecords(begin.View(), begin.fileBytes))
            return kRecords;
        if (LooksLikeChunks(begin.View(), begin.fileBytes))
            return kChunksAsStored;
        if (LooksLikeDense(begin.View(), begin.fileBytes))
            return kDense;
    }
    return LooksLikeTriplets(begin.View()) ? kTriplets : kUnknown;
}

bool IsText(KVOSrvMatrixFormat format)
{
    return format == kMatrixMarket || format == kHarwellBoeing || format == kTriplets || format == kTriplets2;
}

} // namespace

KVOSrvMatrixFormat KVOSrvMatrixFile::FormatOfWord(char const* word)
{
    std::string_view const text = word != nullptr ? word : "";
    if (text.size() == 1 && text[0] >= '0' && text[0] <= '7')
        return static_cast<KVOSrvMatrixFormat>(text[0] - '0');
    return FormatOf(text);
}

KVOSrvMatrixFormat KVOSrvMatrixFile::FormatOfName(char const* path)
{
    std::string name = LowerCase(path);
    name.erase(0, name.rfind('/') + 1);
    std::size_t const dot = name.rfind('.');
    return dot != std::string::npos && dot > 0 ? FormatOf(std::string_view(name).substr(dot + 1)) : kUnknown;
}

KVOSrvMatrixFormat KVOSrvMatrixFile::FormatOfContent(char const* path, bool marksOnly)
{
    try {
        Beginning begin(path);
        KVOSrvMatrixFormat const marked = FormatOfMarks(begin.View());
        return marked == kUnknown && !marksOnly ? FormatOfShape(begin) : marked;
    } catch (KVOSrvMtxOpenFileException const&) {
        return kUnknown;
    } catch (MalformedFile const&) { // it cannot be read; its reader will say so
        return kUnknown;
    }
}

KVOSrvMatrixFormat KVOSrvMatrixFile::FormatToRead(char const* path)
{
    if (KVOSrvMatrixFormat const marked = FormatOfContent(path, true); marked != kUnknown)
        return marked;
    std::string name = LowerCase(path);
    for (std::string_view const compressed : {".gz", ".zst"})
        if (name.ends_with(compressed))
            name.resize(name.size() - compressed.size());
    KVOSrvMatrixFormat const named = FormatOfName(name.c_str());
    // Read by their header, not as format 6: that reader deliberately drops a last chunk that is full.
    return named == kUnknown ? FormatOfContent(path) : named == kChunks ? kChunksAsStored : named;
}

char const* KVOSrvMatrixFile::Describe(KVOSrvMatrixFormat format)
{
    switch (format) {
    case kRecords:
        return "format 0 (record file)";
    case kChunksAsStored:
        return "format 1 (chunked file)";
    case kTriplets2:
        return "format 2 (text triplets)";
    case kTriplets:
        return "format 3 (text triplets)";
    case kNodes:
        return "format 4 (lines with node and degree of freedom)";
    case kLines:
        return "format 5 (comma-separated lines)";
    case kChunks:
        return "format 6 (chunked file)";
    case kDense:
        return "format 7 (dense file)";
    case kMatrixMarket:
        return "Matrix Market";
    case kDatabase:
        return "simulation database";
    case kHarwellBoeing:
        return "Harwell-Boeing";
    case kScipy:
        return "scipy .npz";
    case kNumpy:
        return "NumPy .npy";
    case kMatlab:
        return "MATLAB .mat";
    case kUnknown:
        break;
    }
    return "no known format";
}

std::unique_ptr<KVOSrvSparseMatrix> KVOSrvMatrixFile::Read(char const* path, KVOSrvMatrixFormat format, char const* variable,
                                                           KVOSrvMatrixPart part)
{
    if (format == kUnknown)
        format = FormatToRead(path);
    WithPathOf(path, [&] {
        InputText const text(path);
        bool const isCompressed = text.IsCompressed();
        if (char first; format == kUnknown && text.ReadAt(0, &first, 1) <= 1) // which throws where that is what is wrong
            throw MalformedFile::AtByte(0, "this is like no matrix file that is known; name its format");
        if (isCompressed && !IsText(format))
            throw MalformedFile::AtByte(0, "this is compressed, as text formats only may be; unpack it first");
    });
    switch (format) {
    case kMatrixMarket:
        return MatrixMarket::Read(path, part);
    case kHarwellBoeing:
        return HarwellBoeing::Read(path, part);
    case kScipy:
        return NumpyFiles::ReadSparse(path, part);
    case kNumpy:
        return NumpyFiles::ReadArray(path, part);
    case kMatlab:
        return MatlabFile::Read(path, variable, part);
    case kRecords:
    case kChunksAsStored:
    case kTriplets2:
    case kTriplets:
    case kChunks:
    case kDense: {
        auto matrix = std::make_unique<KVOSrvSparseMatrix>(0, 0);
        matrix->Import(path, static_cast<int>(format));
        return matrix;
    }
    default:
        KVOSrvMtxUnsupportedImpFmt().Throw(kSource, __LINE__);
    }
}
