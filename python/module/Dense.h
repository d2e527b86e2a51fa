#pragma once

#include "Database.h"
#include "Window.h"

#include "KVOSrvDenseMatrix.h"
#include "KVOSrvScratchDenseMatrix.h"

#include <pybind11/numpy.h>

#include <memory>
#include <optional>
#include <vector>

/// A stored dense matrix, in a database or on a scratch file. The order of the axes is that of numpy: rows first, and the dimensions of the
/// file from the last one to the first.
class Dense
{
public:
    Dense(std::shared_ptr<Database> database, Place const& place);
    /// A matrix on a scratch file. @param keeper  has it
    Dense(std::shared_ptr<void const> keeper, KVOSrvDenseMatrix const& matrix);
    Dense(Dense const&) = delete;
    Dense& operator=(Dense const&) = delete;
    ~Dense();
    static std::shared_ptr<Dense> MakeScratch(int rows, int columns, int rowChunk, int columnChunk);

    Home& In() noexcept { return *m_home; }
    pybind11::tuple Shape() const;
    /// Empty: not chunked.
    pybind11::tuple Chunks() const;
    pybind11::dtype Dtype() const;

    /// What a key names where that is one range of at most 64 MiB: a new array, or a value. None: the package itself sees to it.
    pybind11::object Get(pybind11::handle key);
    /// The same into an array of its shape, in Fortran order and of the matrix's type, and from one. False where it is otherwise.
    bool Fill(pybind11::handle key, pybind11::handle values);
    bool Put(pybind11::handle key, pybind11::handle values);

    /// Positions first to first + count - 1 of every axis; none of them empty.
    using Positions = std::vector<int>;
    void Read(Positions const& first, Positions const& count, pybind11::array const& values);
    void Write(Positions const& first, Positions const& count, pybind11::array const& values);
    /// @return the answer of KVOSrvDenseMatrix::ExtendDim()
    int Extend(int axis, std::vector<int> const& numbers);
    void SetCache(std::uint64_t bytes);
    void Export(std::string const& path, bool market);

    /// For products, alone in In(): the matrix as the library has it. @throws the library's refusal where it is none of doubles
    KVOSrvDenseMatrix& Matrix();

private:
    void Bind(KVOSimDistribution const& distribution);
    /// After the file was opened again.
    void BindAgain();
    KVOSimTransfer View(Positions const& first, Positions const& count);
    std::int64_t BytesIn(Positions const& first, Positions const& count) const;
    std::optional<Window> WindowOf(pybind11::handle key) const;
    std::optional<Window> WindowLike(pybind11::handle key, pybind11::handle values) const;
    void Move(Window const& window, void* memory, bool toWrite);

    std::shared_ptr<Home> m_home;
    std::shared_ptr<Database> m_database; // null: a scratch matrix
    Place m_place;
    int m_opened = 0;
    std::shared_ptr<void const> m_keeper;
    KVOSimDistribution m_distribution;
    KVOSimDrawer m_drawer;
    std::unique_ptr<KVOSrvDenseMatrix> m_matrix;
};
