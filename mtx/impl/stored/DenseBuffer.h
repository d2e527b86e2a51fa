#pragma once

#include "Arrays.h"
#include "DensePieces.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMatrix.h"
#include "omi_Timer.h"

/// Reading and writing pieces of database matrices.
namespace DensePieces
{

/// Deliberate: every read and every product stands between the start and the reading of a timer of the platform, although nobody uses the
/// time here. A host that brings a platform of its own traces the two through its timer.
template<class Step>
void Timed(Step const& step)
{
    omi_Timer timer;
    timer.Start();
    step();
    static_cast<void>(timer.GetElapsedTime());
}

/// Memory for the values of one piece of a database matrix at a time: packed by columns.
class Buffer
{
public:
    explicit Buffer(std::int64_t entries) : m_values(Arrays::AllocateArray<double>(entries)) {}
    /// For each piece that ForEachPiece() cuts.
    Buffer(KVOSrvBlockCut const& rows, KVOSrvBlockCut const& columns, Limit const& limit)
        : Buffer(std::int64_t{std::min(rows.MaxNumberInBlock(), limit.rows)} * std::min(columns.MaxNumberInBlock(), limit.columns))
    {
    }

    double* Values() const noexcept { return m_values.get(); }
    /// The values from entry `offset` on.
    KVOSrvMatrix As(int rows, int columns, std::int64_t offset = 0) const { return {rows, columns, Values() + offset, false, false}; }

    /// An empty window is not read.
    void Read(KVOSrvDenseMatrix const& matrix, Window const& w, std::int64_t offset = 0) const
    {
        if (w.Entries() == 0)
            return;
        KVOSrvMatrix values = As(w.Rows(), w.Columns(), offset);
        Timed([&] { matrix.GetValues(w.r0, w.r1, w.c0, w.c1, values); });
    }
    /// The values where they lie in the file, or else read.
    double const* Find(KVOSrvDenseMatrix const& matrix, Window const& w) const
    {
        if (double const* const values = matrix.ValuesInPlace(w.r0, w.r1, w.c0, w.c1))
            return values;
        Read(matrix, w);
        return Values();
    }
    /// An empty window is not written.
    void Write(KVOSrvDenseMatrix& matrix, Window const& w, std::int64_t offset = 0) const
    {
        if (w.Entries() > 0)
            matrix.SetValues(w.r0, w.r1, w.c0, w.c1, As(w.Rows(), w.Columns(), offset));
    }

private:
    Arrays::Array<double> m_values;
};

} // namespace DensePieces
