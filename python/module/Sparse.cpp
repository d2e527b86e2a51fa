// Sparse matrices: compressed rows between numpy, files, databases and the library.

#include "Sparse.h"

#include "Arrays.h"
#include "Interrupt.h"

#include "KVOFsmSystemDofDefinition.h"
#include "KVOSimCollection.h"
#include "KVOSimTransfer.h"
#include "KVOSrvMatrixFile.h"
#include "KVOSrvUtilities.h"

#include <algorithm>
#include <array>

namespace py = pybind11;

namespace
{

template<class T>
using Array = std::unique_ptr<T[], mem_Deleter>;

template<class T, class Source>
Array<T> Copied(Source const* source, std::int64_t count)
{
    Array<T> copy(static_cast<T*>(mem_OperatorNewThrow(mem_ArrayBytes(count, sizeof(T)))));
    std::copy_n(source, count, copy.get());
    return copy;
}

template<class T>
py::array Seen(T const* values, std::int64_t count, py::object const& keeper)
{
    return py::array_t<T>({static_cast<py::ssize_t>(count)}, {}, values, keeper);
}

} // namespace

Sparse::~Sparse()
{
    py::gil_scoped_release const released;
    m_matrix.reset();
}

std::shared_ptr<Sparse> Sparse::Make(std::function<std::unique_ptr<KVOSrvSparseMatrix>()> const& make)
{
    py::gil_scoped_release const released;
    return std::make_shared<Sparse>(make());
}

std::shared_ptr<Sparse> Sparse::FromRows(int rows, int columns, py::array_t<int> const& rowStart, py::array_t<int> const& columnIndices,
                                         py::array_t<double> const& values, std::optional<py::array_t<double>> const& diagonal)
{
    std::int64_t const entries = columnIndices.size();
    if (rows < 0 || columns < 0 || rowStart.size() != std::int64_t{rows} + 1 || values.size() != entries ||
        rowStart.data()[rows] != entries || (diagonal && (diagonal->size() != rows || rows != columns)))
        throw py::value_error("the arrays are not those of a sparse matrix of that shape");
    return Make([&] {
        auto starts = Copied<unsigned>(rowStart.data(), rowStart.size());
        auto indices = Copied<int>(columnIndices.data(), entries);
        auto copies = Copied<double>(values.data(), entries);
        auto onDiagonal = diagonal ? Copied<double>(diagonal->data(), diagonal->size()) : nullptr;
        auto matrix = std::make_unique<KVOSrvSparseMatrix>(rows, columns, starts.get(), indices.get(), copies.get(), onDiagonal.get());
        static_cast<void>(starts.release()); // the matrix has them
        static_cast<void>(indices.release());
        static_cast<void>(copies.release());
        static_cast<void>(onDiagonal.release());
        return matrix;
    });
}

std::shared_ptr<Sparse> Sparse::FromDatabase(Database& database, Place const& place)
{
    return Alone({&database}, [&] { return std::make_shared<Sparse>(std::make_unique<KVOSrvSparseMatrix>(database.IdOf(place))); });
}

std::shared_ptr<Sparse> Sparse::Read(std::string const& path, int format, std::string const& variable)
{
    return Interruptible([&] {
        return Make([&] { return KVOSrvMatrixFile::Read(path.c_str(), static_cast<KVOSrvMatrixFormat>(format), variable.c_str()); });
    });
}

bool Sparse::IsSymmetric()
{
    return Alone({this}, [&] { return m_matrix->NumberOfRows() == m_matrix->NumberOfColumns() && m_matrix->IsSymmetric(); });
}

std::shared_ptr<Sparse> Sparse::InFullStorage()
{
    return Alone({this}, [&] { return std::make_shared<Sparse>(m_matrix->InFullStorage()); });
}

std::shared_ptr<Sparse> Sparse::InHalfStorage()
{
    return Alone({this}, [&] { return std::make_shared<Sparse>(m_matrix->InHalfStorage()); });
}

void Sparse::Write(std::string const& path, int format, std::optional<py::array_t<int>> const& numbering)
{
    std::vector<int> nodes, dofs;
    for (py::ssize_t row = 0; numbering && row < numbering->shape(0); ++row) {
        nodes.push_back(numbering->at(row, 0));
        dofs.push_back(numbering->at(row, 1));
    }
    Interruptible([&] {
        Alone({this}, [&] {
            KVOFsmSystemDofDefinition const definition(static_cast<int>(nodes.size()), nodes.data(), dofs.data());
            if (format == static_cast<int>(KVOSrvMatrixFormat::kMatrixMarket))
                m_matrix->ExportMatrixMarket(path.c_str());
            else if (format == static_cast<int>(KVOSrvMatrixFormat::kTriplets))
                m_matrix->ExportTriplets(path.c_str());
            else
                m_matrix->Export(path.c_str(), format, numbering ? &definition : nullptr);
        });
    });
}

Place Sparse::Store(Database& database, About const& about, bool checksums)
{
    return Alone({this, &database}, [&] {
        KVOSimContext context = database.FirstContext();
        KVOSimPosition position(context);
        auto const makeSet = [&](int members) { return KVOSimCollection(context.CreateCollection(members)).BiggestCSetID(); };
        KVOSimCSetID const rows = makeSet(m_matrix->NumberOfRows());
        bool const square = m_matrix->NumberOfRows() == m_matrix->NumberOfColumns();
        KVOSimCSetID const columns = square ? rows : makeSet(m_matrix->NumberOfColumns());
        KVOSimDistributionID const id = about.type < 0 ? KVOSrvUtilities::CreateSparseDistribution(rows, columns)
                                                       : KVOSrvUtilities::CreateSparseDistribution(position, about.type, rows, columns);
        about.Tell(id);
        m_matrix->Export(rows, columns, id, checksums);
        return Place{id.ContextID().Index(), id.Index()};
    });
}

void Sparse::Multiply(py::array_t<double> const& X, py::array_t<double>& Y, bool transpose)
{
    std::int64_t const inRows = transpose ? m_matrix->NumberOfRows() : m_matrix->NumberOfColumns();
    std::int64_t const outRows = transpose ? m_matrix->NumberOfColumns() : m_matrix->NumberOfRows();
    py::ssize_t const vectors = X.ndim() == 1 ? 1 : X.shape(1);
    auto const* const x = static_cast<double const*>(BytesOf(X, inRows * vectors * 8, false));
    auto* const y = static_cast<double*>(BytesOf(Y, outRows * vectors * 8, true));
    Alone({this}, [&] { m_matrix->Multiply(x, static_cast<int>(vectors), y, transpose); });
}

py::tuple RowsOf(std::shared_ptr<Sparse> const& matrix)
{
    py::object const keeper = py::cast(matrix);
    KVOSrvSparseRows const rows = matrix->Matrix().Rows();
    return py::make_tuple(Seen(reinterpret_cast<int const*>(rows.rowStart), std::int64_t{rows.rows} + 1, keeper),
                          Seen(rows.columnIndices, rows.entries, keeper), Seen(rows.values, rows.entries, keeper),
                          rows.diagonal != nullptr ? py::object(Seen(rows.diagonal, rows.rows, keeper)) : py::none());
}

py::tuple StoredRows(Database& database, Place const& place, bool mapped)
{
    struct Slot {
        std::int64_t count = 0;
        std::size_t bytes = 0;
        KVOSimArrayPlace place;
        py::object values;
    };
    std::array<Slot, 4> slots; // values, columns, row starts, diagonal
    int count = 0;
    int descriptor = -1;
    KVOSimArray<KVOSimDrawer> drawers;
    Alone({&database}, [&] {
        KVOSimDistribution const distribution(database.IdOf(place));
        distribution.QueryDrawers(drawers);
        count = !drawers.IsEmpty() && drawers[0].kind == KVOSimSparseSymDrawer ? 4 : 3;
        for (int s = 0; s < count; ++s) {
            slots[static_cast<std::size_t>(s)].count = distribution.DataSizeItems(0, s);
            slots[static_cast<std::size_t>(s)].place = distribution.ArrayPlace(0, s);
        }
        descriptor = mapped ? database.Descriptor() : -1;
    });
    auto const dtypeOf = [&](int slot) { return slot == 0 || slot == 3 ? DtypeOf(drawers[0].typeKey) : py::dtype::of<std::int32_t>(); };
    bool all = descriptor >= 0;
    for (int s = 0; s < count && all; ++s) {
        Slot& slot = slots[static_cast<std::size_t>(s)];
        slot.values = MapArray(descriptor, dtypeOf(s), slot.place.offset, slot.place.bytes > 0 ? slot.count : 0);
        all = !slot.values.is_none();
    }
    // Rows that another program made wrong would be read beyond their ends; the whole is checked where it is read.
    if (all) {
        auto const starts = py::array_t<int>(slots[2].values);
        if (starts.data()[0] != 0 || starts.data()[starts.size() - 1] != slots[0].count)
            all = false;
    }
    if (!all) {
        std::array<void*, 4> memory{};
        for (int s = 0; s < count; ++s) {
            Slot& slot = slots[static_cast<std::size_t>(s)];
            py::array const values = NewArray(dtypeOf(s), {static_cast<py::ssize_t>(slot.count)});
            memory[static_cast<std::size_t>(s)] = BytesOf(values, values.nbytes(), true);
            slot.bytes = static_cast<std::size_t>(values.nbytes());
            slot.values = values;
        }
        Alone({&database}, [&] {
            KVOSimTransfer transfer{KVOSimDistribution(database.IdOf(place))};
            transfer.SetRead();
            transfer.SetSerialization(drawers[0].serialization);
            for (int d = 0; d < 2; ++d)
                transfer.SetDim(d, drawers[0].csets[d]);
            for (int s = 0; s < count; ++s)
                transfer.SetBuffer(s, memory[static_cast<std::size_t>(s)], slots[static_cast<std::size_t>(s)].bytes);
            transfer.ExecRead();
        });
    }
    return py::make_tuple(slots[2].values, slots[1].values, slots[0].values, count == 4 ? slots[3].values : py::none());
}
