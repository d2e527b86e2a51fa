#include "NumpyFiles.h"

#include "KVOSrvInterrupt.h"
#include "KVOSrvSparseMatrix.h"
#include "MalformedFile.h"
#include "MatrixFiles.h"
#include "NumpyArray.h"
#include "mem_Allocator.h"

#include <algorithm>
#include <climits>
#include <vector>

#include <zip.h>

namespace
{

constexpr std::int64_t kMostRows = INT_MAX - 1; // as AddData() takes

class FileStream : public ByteStream
{
public:
    explicit FileStream(char const* path) : m_file(path) {}
    std::size_t Read(char* target, std::size_t bytes) override { return m_file.Read(target, bytes); }

private:
    InputFile m_file;
};

/// An archive, of which several members may be read side by side.
class Archive
{
public:
    explicit Archive(char const* path)
    {
        int code = 0;
        m_archive.reset(zip_open(path, ZIP_RDONLY, &code));
        if (m_archive != nullptr)
            return;
        if (code == ZIP_ER_MEMORY)
            throw mem_OutOfMemory(0);
        zip_error_t error;
        zip_error_init_with_code(&error, code);
        std::string const reason = zip_error_strerror(&error);
        zip_error_fini(&error);
        throw MalformedFile::AtByte(0, "the archive cannot be read: " + reason);
    }

    bool Has(char const* name) const { return zip_name_locate(m_archive.get(), name, 0) >= 0; }

    NumpyArray Open(std::string const& name) const { return {std::make_unique<Member>(m_archive.get(), name), name}; }

private:
    class Member : public ByteStream
    {
    public:
        Member(zip_t* archive, std::string const& name) : m_name(name), m_file(zip_fopen(archive, name.c_str(), 0))
        {
            if (m_file == nullptr)
                throw MalformedFile::AtByte(0, "the archive has no " + name + " that can be read: " + zip_strerror(archive));
        }
        ~Member() override { zip_fclose(m_file); }
        Member(Member const&) = delete;
        Member& operator=(Member const&) = delete;

        std::size_t Read(char* target, std::size_t bytes) override
        {
            KVOSrvInterrupt::Ask(); // a few bytes may stand for any length
            zip_int64_t const got = zip_fread(m_file, target, bytes);
            if (got < 0)
                throw MalformedFile::AtByte(m_place, m_name + ": the archive is damaged: " + zip_file_strerror(m_file));
            m_place += got;
            return static_cast<std::size_t>(got);
        }

    private:
        std::string m_name;
        zip_file_t* m_file;
        std::int64_t m_place = 0;
    };

    struct Discard {
        void operator()(zip_t* archive) const noexcept { zip_discard(archive); }
    };
    std::unique_ptr<zip_t, Discard> m_archive;
};

void RequireNumbers(NumpyArray const& values, KVOSrvMatrixPart part)
{
    if (values.IsText())
        values.Refuse("expected numbers, found texts");
    if (values.IsComplex() && part == KVOSrvMatrixPart::kWhole)
        values.Refuse("a complex matrix cannot be held; store its real and its imaginary part on their own");
}

/// The members of a sparse matrix.
class SparseArchive
{
public:
    SparseArchive(char const* path, KVOSrvMatrixPart part) : m_archive(path), m_part(part)
    {
        if (!m_archive.Has("format.npy"))
            throw MalformedFile::AtByte(0, "this archive holds no sparse matrix, which scipy.sparse.save_npz writes");
        NumpyArray format = m_archive.Open("format.npy"), shape = m_archive.Open("shape.npy");
        m_format = format.TakeText();
        format.RequireEnd();
        if (shape.Shape() != std::vector<std::int64_t>{2})
            shape.Refuse("expected the number of rows and that of columns");
        m_rows = shape.TakeInteger(0, kMostRows, "the number of rows");
        m_columns = shape.TakeInteger(0, kMostRows, "the number of columns");
        shape.RequireEnd();
    }

    std::unique_ptr<KVOSrvSparseMatrix> Read()
    {
        auto matrix = std::make_unique<KVOSrvSparseMatrix>(static_cast<int>(m_rows), static_cast<int>(m_columns));
        matrix->BeginAssembly();
        NumpyArray values = m_archive.Open("data.npy");
        RequireNumbers(values, m_part);
        if (m_format == "csr" || m_format == "csc" || m_format == "bsr")
            AddCompressed(values, *matrix);
        else if (m_format == "coo")
            AddCoordinates(values, *matrix);
        else if (m_format == "dia")
            AddDiagonals(values, *matrix);
        else
            throw MalformedFile::AtByte(0, "expected one of the formats csr, csc, coo, bsr and dia, found " + Quoted(m_format));
        values.RequireEnd();
        matrix->EndAssembly();
        return matrix;
    }

private:
    NumpyArray OpenList(char const* name, std::int64_t length) const
    {
        NumpyArray list = m_archive.Open(name);
        if (list.Shape() != std::vector<std::int64_t>{length})
            list.Refuse("expected an array of " + std::to_string(length) + " numbers, as the other members say");
        return list;
    }

    static void RequireCount(NumpyArray const& values, std::int64_t count)
    {
        if (count > INT_MAX)
            values.Refuse("more entries than a matrix can have (2147483647)");
    }

    void AddValue(NumpyArray& values, std::int64_t row, std::int64_t column, KVOSrvSparseMatrix& matrix) const
    {
        matrix.AddData(static_cast<unsigned>(row), static_cast<unsigned>(column), values.TakeValue(m_part).number);
    }

    // By rows, by columns, or by rows of blocks, which are entries of a coarser matrix.
    void AddCompressed(NumpyArray& values, KVOSrvSparseMatrix& matrix) const
    {
        bool const blocks = m_format == "bsr", byColumns = m_format == "csc";
        values.RequireDimensions(blocks ? 3 : 1, blocks ? "blocks" : "a list of values");
        if (values.IsFortranOrder() && blocks)
            values.Refuse("expected blocks in the order of C");
        std::int64_t const count = values.Shape()[0], high = blocks ? values.Shape()[1] : 1, wide = blocks ? values.Shape()[2] : 1;
        RequireCount(values, count);
        if (high < 1 || wide < 1 || high > m_rows + 1 || wide > m_columns + 1 || m_rows % high != 0 || m_columns % wide != 0)
            values.Refuse("expected blocks of a size that divides the matrix");
        std::int64_t const outer = byColumns ? m_columns : m_rows / high, inner = byColumns ? m_rows : m_columns / wide;
        NumpyArray pointers = OpenList("indptr.npy", outer + 1), indices = OpenList("indices.npy", count);
        std::int64_t k = pointers.TakeInteger(0, 0, "the first pointer");
        for (std::int64_t i = 0; i < outer; ++i) {
            std::int64_t const end = pointers.TakeInteger(i + 1 < outer ? k : count, count, "a pointer");
            for (; k < end; ++k) {
                std::int64_t const j = indices.TakeInteger(0, inner - 1, "an index");
                for (std::int64_t place = 0; place < high * wide; ++place)
                    AddValue(values, byColumns ? j : i * high + place / wide, byColumns ? i : j * wide + place % wide, matrix);
            }
        }
        if (k != count)
            values.Refuse("a matrix without rows or columns has no entries, found " + std::to_string(count));
        pointers.RequireEnd();
        indices.RequireEnd();
    }

    void AddCoordinates(NumpyArray& values, KVOSrvSparseMatrix& matrix) const
    {
        values.RequireDimensions(1, "a list of values");
        std::int64_t const count = values.Shape()[0];
        RequireCount(values, count);
        NumpyArray rows = OpenList("row.npy", count), columns = OpenList("col.npy", count);
        for (std::int64_t k = 0; k < count; ++k) {
            std::int64_t const row = rows.TakeInteger(0, m_rows - 1, "a row"), column = columns.TakeInteger(0, m_columns - 1, "a column");
            AddValue(values, row, column, matrix);
        }
        rows.RequireEnd();
        columns.RequireEnd();
    }

    // Element j of a diagonal stands in column j; what stands outside, and zeros, are no entries.
    void AddDiagonals(NumpyArray& values, KVOSrvSparseMatrix& matrix) const
    {
        values.RequireDimensions(2, "a diagonal a row");
        if (values.IsFortranOrder())
            values.Refuse("expected diagonals in the order of C");
        std::int64_t const count = values.Shape()[0], length = values.Shape()[1];
        NumpyArray offsets = OpenList("offsets.npy", count);
        for (std::int64_t d = 0; d < count; ++d) {
            std::int64_t const offset = offsets.TakeInteger(-kMostRows, kMostRows, "a diagonal's offset");
            for (std::int64_t column = 0; column < length; ++column) {
                NumpyArray::Value const value = values.TakeValue(m_part);
                std::int64_t const row = column - offset;
                if (!value.isZero && row >= 0 && row < m_rows && column < m_columns)
                    matrix.AddData(static_cast<unsigned>(row), static_cast<unsigned>(column), value.number);
            }
        }
        offsets.RequireEnd();
    }

    Archive m_archive;
    KVOSrvMatrixPart m_part;
    std::string m_format;
    std::int64_t m_rows = 0;
    std::int64_t m_columns = 0;
};

} // namespace

std::unique_ptr<KVOSrvSparseMatrix> NumpyFiles::ReadArray(char const* path, KVOSrvMatrixPart part)
{
    return WithPathOf(path, [path, part] {
        NumpyArray values(std::make_unique<FileStream>(path), "");
        RequireNumbers(values, part);
        std::vector<std::int64_t> shape = values.Shape();
        if (shape.size() == 1)
            shape.push_back(1);
        if (shape.size() != 2 || shape[0] > kMostRows || shape[1] > kMostRows)
            values.Refuse("expected an array of one or two dimensions, of at most " + std::to_string(kMostRows) + " rows and columns");
        auto matrix = std::make_unique<KVOSrvSparseMatrix>(static_cast<int>(shape[0]), static_cast<int>(shape[1]));
        matrix->BeginAssembly();
        std::int64_t const outer = values.IsFortranOrder() ? shape[1] : shape[0], inner = values.IsFortranOrder() ? shape[0] : shape[1];
        for (std::int64_t i = 0; inner > 0 && i < outer; ++i)
            for (std::int64_t j = 0; j < inner; ++j) {
                NumpyArray::Value const value = values.TakeValue(part);
                if (!value.isZero)
                    matrix->AddData(static_cast<unsigned>(values.IsFortranOrder() ? j : i),
                                    static_cast<unsigned>(values.IsFortranOrder() ? i : j), value.number);
            }
        values.RequireEnd();
        matrix->EndAssembly();
        return matrix;
    });
}

std::unique_ptr<KVOSrvSparseMatrix> NumpyFiles::ReadSparse(char const* path, KVOSrvMatrixPart part)
{
    return WithPathOf(path, [path, part] { return SparseArchive(path, part).Read(); });
}
