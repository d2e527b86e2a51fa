#include "MatlabFile.h"

#include "KVOSimMatlabFile.h"
#include "KVOSrvInterrupt.h"
#include "KVOSrvSparseMatrix.h"
#include "MalformedFile.h"
#include "MatrixFiles.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace
{

constexpr std::int64_t kMostRows = INT_MAX - 1; // as AddData() takes
constexpr std::int64_t kHead = 512;             // bytes of text in front of what is HDF5

[[noreturn]] void Refuse(KVOSimMatlabVariable const& variable, std::string const& what)
{
    throw MalformedFile::AtByte(kHead, std::string("the variable ") + variable.name.c_str() + ": " + what);
}

/// Numbers that are read some at a time and taken one by one.
template<class T>
class Numbers
{
public:
    explicit Numbers(std::int64_t count) : m_left(count) {}

    /// @param read  read(first, count, target)
    template<class Read>
    T Take(Read const& read)
    {
        constexpr std::int64_t kPiece = 65536;
        if (m_next == m_piece.size()) {
            KVOSrvInterrupt::Ask();
            m_piece.resize(static_cast<std::size_t>(std::min(kPiece, m_left)));
            read(m_first, std::ssize(m_piece), m_piece.data());
            m_first += std::ssize(m_piece);
            m_left -= std::ssize(m_piece);
            m_next = 0;
        }
        return m_piece[m_next++];
    }

private:
    std::int64_t m_first = 0;
    std::int64_t m_left;
    std::vector<T> m_piece;
    std::size_t m_next = 0;
};

void RequireLevel(char const* path)
{
    char text[128] = {};
    InputFile file(path);
    std::string_view const begin(text, file.Read(text, sizeof text));
    if (begin.starts_with("MATLAB 5.0"))
        throw MalformedFile::AtByte(0, "this is a .mat file of level 5; save it from MATLAB with the option -v7.3");
    if (!begin.starts_with("MATLAB 7.3"))
        throw MalformedFile::AtByte(0, "expected a .mat file of level 7.3, as MATLAB saves with the option -v7.3");
}

KVOSimMatlabVariable Choose(KVOSimMatlabFile& file, std::string const& name)
{
    KVOSimArray<KVOSimMatlabVariable> const variables = file.Variables();
    std::string names;
    for (KVOSimMatlabVariable const& each : variables) {
        if (name == each.name.c_str() || (name.empty() && variables.Size() == 1))
            return file.Select(each.name.c_str());
        if (names.size() < 200)
            names += (names.empty() ? "" : ", ") + std::string(each.name.c_str());
    }
    if (variables.IsEmpty())
        throw MalformedFile::AtByte(kHead, "expected a matrix of numbers, found none");
    throw MalformedFile::AtByte(kHead, (name.empty() ? std::string("several matrices are here; name one of ")
                                                     : "there is no matrix " + Quoted(name) + "; there are ") +
                                           names);
}

// Of 0 in both parts nothing is stored, so that both have entries at the same places.
void AddDense(KVOSimMatlabFile const& file, KVOSimMatlabVariable const& variable, KVOSrvMatrixPart part, KVOSrvSparseMatrix& matrix)
{
    constexpr std::int64_t kPiece = 65536;
    std::vector<double> values, others;
    for (std::int64_t column = 0; column < variable.columns; ++column)
        for (std::int64_t row = 0; row < variable.rows; row += kPiece) {
            KVOSrvInterrupt::Ask();
            std::int64_t const count = std::min(kPiece, variable.rows - row);
            values.resize(static_cast<std::size_t>(count));
            others.assign(values.size(), 0.0);
            bool const imaginary = variable.isComplex && part == KVOSrvMatrixPart::kImaginary;
            file.ReadColumn(column, row, count, imaginary, values.data());
            if (variable.isComplex)
                file.ReadColumn(column, row, count, !imaginary, others.data());
            for (std::size_t k = 0; k < values.size(); ++k)
                if (values[k] != 0.0 || others[k] != 0.0)
                    matrix.AddData(static_cast<unsigned>(row) + static_cast<unsigned>(k), static_cast<unsigned>(column), values[k]);
        }
}

void AddSparse(KVOSimMatlabFile const& file, KVOSimMatlabVariable const& variable, KVOSrvMatrixPart part, KVOSrvSparseMatrix& matrix)
{
    auto const readStarts = [&](std::int64_t first, std::int64_t count, std::int64_t* target) {
        file.ReadColumnStarts(first, count, target);
    };
    auto const readRows = [&](std::int64_t first, std::int64_t count, std::int64_t* target) { file.ReadRows(first, count, target); };
    auto const readValues = [&](std::int64_t first, std::int64_t count, double* target) {
        file.ReadValues(first, count, variable.isComplex && part == KVOSrvMatrixPart::kImaginary, target);
    };
    std::string const last = std::to_string(variable.rows - 1);
    Numbers<std::int64_t> starts(variable.columns + 1), rows(variable.entries);
    Numbers<double> values(variable.entries);
    std::int64_t k = starts.Take(readStarts);
    if (k != 0)
        Refuse(variable, "expected 0 as the start of the first column, found " + std::to_string(k));
    for (std::int64_t column = 0; column < variable.columns; ++column) {
        std::int64_t const end = starts.Take(readStarts);
        if (end < k || end > variable.entries || (column + 1 == variable.columns && end != variable.entries))
            Refuse(variable, "expected ascending column starts up to " + std::to_string(variable.entries) + ", found " +
                                 std::to_string(end) + " behind column " + std::to_string(column + 1));
        for (; k < end; ++k) {
            std::int64_t const row = rows.Take(readRows);
            if (row < 0 || row >= variable.rows)
                Refuse(variable,
                       "expected a row from 0 to " + last + " in entry " + std::to_string(k + 1) + ", found " + std::to_string(row));
            matrix.AddData(static_cast<unsigned>(row), static_cast<unsigned>(column), values.Take(readValues));
        }
    }
}

} // namespace

std::unique_ptr<KVOSrvSparseMatrix> MatlabFile::Read(char const* path, char const* variable, KVOSrvMatrixPart part)
{
    return WithPathOf(path, [&] {
        RequireLevel(path);
        KVOSimMatlabFile file(path);
        KVOSimMatlabVariable const chosen = Choose(file, variable != nullptr ? variable : "");
        if (chosen.isComplex && part == KVOSrvMatrixPart::kWhole)
            Refuse(chosen, "a complex matrix cannot be held; save its real and its imaginary part as variables of their own");
        if (chosen.rows > kMostRows || chosen.columns > kMostRows || (chosen.isSparse && chosen.entries > INT_MAX))
            Refuse(chosen, "more rows, columns or entries than a matrix can have");
        auto matrix = std::make_unique<KVOSrvSparseMatrix>(static_cast<int>(chosen.rows), static_cast<int>(chosen.columns));
        matrix->BeginAssembly();
        (chosen.isSparse ? AddSparse : AddDense)(file, chosen, part, *matrix);
        matrix->EndAssembly();
        return matrix;
    });
}
