// Stored dense matrices: transfers between the file and arrays of numpy.

#include "Dense.h"

#include "Arrays.h"
#include "Interrupt.h"

#include "KVOSimTransfer.h"

#include <algorithm>

namespace py = pybind11;

Dense::Dense(std::shared_ptr<Database> database, Place const& place) : m_home(database), m_database(std::move(database)), m_place(place)
{
    Alone({m_home.get()}, [&] { BindAgain(); });
}

Dense::Dense(std::shared_ptr<void const> keeper, KVOSrvDenseMatrix const& matrix)
    : m_home(std::make_shared<Home>()), m_keeper(std::move(keeper))
{
    Alone({m_home.get()}, [&] { Bind(KVOSimDistribution(matrix.DistributionID())); });
}

// What is let go belongs to the database, which another thread may be in.
Dense::~Dense()
{
    py::gil_scoped_release const released;
    Held const held({m_home.get()});
    m_matrix.reset();
    m_distribution = KVOSimDistribution();
    m_keeper.reset();
}

std::shared_ptr<Dense> Dense::MakeScratch(int rows, int columns, int rowChunk, int columnChunk)
{
    auto const matrix = [&] {
        py::gil_scoped_release const released;
        return std::make_shared<KVOSrvScratchDenseMatrix>(rows, columns, rowChunk, columnChunk);
    }();
    return std::make_shared<Dense>(matrix, *matrix);
}

void Dense::Bind(KVOSimDistribution const& distribution)
{
    KVOSimArray<KVOSimDrawer> drawers;
    distribution.QueryDrawers(drawers);
    if (drawers.IsEmpty() || drawers[0].kind != KVOSimDenseDrawer)
        KVOSimException("Cannot open a matrix", "", "it is not dense").Throw("python/module/Dense", __LINE__);
    m_matrix.reset();
    m_distribution = distribution;
    m_drawer = drawers[0];
}

void Dense::BindAgain()
{
    if (m_database == nullptr || m_opened == m_database->Opened())
        return;
    Bind(KVOSimDistribution(m_database->IdOf(m_place)));
    m_opened = m_database->Opened();
}

py::tuple Dense::Shape() const
{
    int const rank = m_drawer.dimensionSizes.Size();
    py::tuple shape(rank);
    for (int axis = 0; axis < rank; ++axis)
        shape[static_cast<std::size_t>(axis)] = m_drawer.dimensionSizes[rank - 1 - axis];
    return shape;
}

py::tuple Dense::Chunks() const
{
    int const rank = m_drawer.chunkSizes.Size();
    py::tuple chunks(rank);
    for (int axis = 0; axis < rank; ++axis)
        chunks[static_cast<std::size_t>(axis)] = m_drawer.chunkSizes[rank - 1 - axis];
    return chunks;
}

py::dtype Dense::Dtype() const
{
    return DtypeOf(m_drawer.typeKey);
}

KVOSimTransfer Dense::View(Positions const& first, Positions const& count)
{
    BindAgain();
    KVOSimTransfer transfer(m_distribution);
    KVOSimArray<KVOSimCollectionID> const& collections = m_distribution.Collections();
    for (int d = 0; d < collections.Size(); ++d) {
        auto const axis = static_cast<std::size_t>(collections.Size() - 1 - d);
        transfer.SetDimOrdinalRange(d, collections[d], first[axis], first[axis] + count[axis] - 1);
    }
    return transfer;
}

std::int64_t Dense::BytesIn(Positions const& first, Positions const& count) const
{
    if (first.size() != count.size() || count.size() != static_cast<std::size_t>(m_drawer.dimensionSizes.Size()))
        throw py::value_error("one range for each axis is needed");
    std::int64_t bytes = KVOSimTypeKeySize(m_drawer.typeKey);
    for (int const extent : count)
        if (__builtin_mul_overflow(bytes, std::int64_t{extent}, &bytes))
            throw py::value_error("the range is too large");
    return bytes;
}

std::optional<Window> Dense::WindowOf(py::handle key) const
{
    constexpr std::int64_t kMost = std::int64_t{1} << 26; // at 1 GB/s a tenth of a second, in which Ctrl-C is not taken
    std::vector<int> shape;
    for (int d = m_drawer.dimensionSizes.Size(); d-- > 0;)
        shape.push_back(m_drawer.dimensionSizes[d]);
    return ::WindowOf(key, shape, kMost / KVOSimTypeKeySize(m_drawer.typeKey));
}

std::optional<Window> Dense::WindowLike(py::handle key, py::handle values) const
{
    if (!py::isinstance<py::array>(values))
        return std::nullopt;
    auto const array = py::reinterpret_borrow<py::array>(values);
    if ((array.flags() & py::array::f_style) == 0 || !array.dtype().equal(Dtype()))
        return std::nullopt;
    std::optional<Window> window = WindowOf(key);
    return window && std::equal(window->shape.begin(), window->shape.end(), array.shape(), array.shape() + array.ndim()) ? window
                                                                                                                         : std::nullopt;
}

void Dense::Move(Window const& window, void* memory, bool toWrite)
{
    auto const bytes = static_cast<std::size_t>(window.values * KVOSimTypeKeySize(m_drawer.typeKey));
    Alone({m_home.get()}, [&] {
        KVOSimTransfer transfer = View(window.first, window.count);
        transfer.SetBuffer(0, memory, bytes);
        if (toWrite) {
            transfer.SetWrite();
            transfer.ExecWrite();
        } else {
            transfer.SetRead();
            transfer.ExecRead();
        }
    });
}

py::object Dense::Get(py::handle key)
{
    std::optional<Window> const window = WindowOf(key);
    if (!window)
        return py::none();
    py::array values = NewArray(Dtype(), window->shape);
    Move(*window, values.mutable_data(), false);
    return window->shape.empty() ? py::object(values[py::tuple()]) : values;
}

bool Dense::Fill(py::handle key, py::handle values)
{
    std::optional<Window> const window = WindowLike(key, values);
    auto const writeable = window && py::reinterpret_borrow<py::array>(values).writeable();
    if (writeable)
        Move(*window, py::reinterpret_borrow<py::array>(values).mutable_data(), false);
    return writeable;
}

bool Dense::Put(py::handle key, py::handle values)
{
    std::optional<Window> const window = WindowLike(key, values);
    if (window)
        Move(*window, const_cast<void*>(py::reinterpret_borrow<py::array>(values).data()), true);
    return window.has_value();
}

void Dense::Read(Positions const& first, Positions const& count, py::array const& values)
{
    std::int64_t const bytes = BytesIn(first, count);
    void* const memory = BytesOf(values, bytes, true);
    Alone({m_home.get()}, [&] {
        KVOSimTransfer transfer = View(first, count);
        transfer.SetRead();
        transfer.SetBuffer(0, memory, static_cast<std::size_t>(bytes));
        transfer.ExecRead();
    });
}

void Dense::Write(Positions const& first, Positions const& count, py::array const& values)
{
    std::int64_t const bytes = BytesIn(first, count);
    void const* const memory = BytesOf(values, bytes, false);
    Alone({m_home.get()}, [&] {
        KVOSimTransfer transfer = View(first, count);
        transfer.SetWrite();
        transfer.SetBuffer(0, memory, static_cast<std::size_t>(bytes));
        transfer.ExecWrite();
    });
}

KVOSrvDenseMatrix& Dense::Matrix()
{
    BindAgain();
    if (m_matrix == nullptr)
        m_matrix = std::make_unique<KVOSrvDenseMatrix>(m_distribution);
    return *m_matrix;
}

int Dense::Extend(int axis, std::vector<int> const& numbers)
{
    return Alone({m_home.get()}, [&] {
        KVOSrvDenseMatrix& matrix = Matrix();
        int const answer = matrix.ExtendDim(1 - axis, static_cast<int>(numbers.size()), numbers.data());
        if (answer == 0)
            Bind(KVOSimDistribution(m_distribution));
        return answer;
    });
}

void Dense::SetCache(std::uint64_t bytes)
{
    Alone({m_home.get()}, [&] {
        BindAgain();
        m_distribution.SetCacheSize(bytes);
    });
}

void Dense::Export(std::string const& path, bool market)
{
    Interruptible(
        [&] { Alone({m_home.get()}, [&] { market ? Matrix().ExportMatrixMarket(path.c_str()) : Matrix().ExportDense(path.c_str()); }); });
}
