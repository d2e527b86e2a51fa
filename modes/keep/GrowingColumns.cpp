#include "GrowingColumns.h"

#include "KVOSimCollection.h"
#include "KVOSimContext.h"
#include "KVOSimPosition.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvModesFailure.h"
#include "KVOSrvUtilities.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace
{

// A block of the matrix has at most a megabyte.
constexpr int kBlockRows = 16384;
constexpr int kBlockColumns = 8;

KVOSimDistributionID Make(KVOSimContext& context, int type, int rows)
{
    KVOSimPosition position(context);
    auto const set = [&](int members) { return KVOSimCollection(context.CreateCollection(members)).BiggestCSetID(); };
    return KVOSrvUtilities::Create2DDistribution(position, type, set(rows), set(kBlockColumns), std::min(rows, kBlockRows), kBlockColumns);
}

} // namespace

GrowingColumns::GrowingColumns(KVOSimContext& context, int type, int rows) : GrowingColumns(Make(context, type, rows)) {}

GrowingColumns::GrowingColumns(KVOSimDistributionID const& distribution) : m_matrix(std::make_unique<KVOSrvDenseMatrix>(distribution)) {}

GrowingColumns::GrowingColumns(GrowingColumns&&) noexcept = default;
GrowingColumns& GrowingColumns::operator=(GrowingColumns&&) noexcept = default;
GrowingColumns::~GrowingColumns() = default;

int GrowingColumns::Rows() const noexcept
{
    return m_matrix->NumberOfRows();
}

int GrowingColumns::Columns() const noexcept
{
    return m_matrix->NumberOfColumns();
}

void GrowingColumns::Write(int first, KVOSrvMatrix const& columns)
{
    int const end = first + columns.NumberOfColumns(), there = Columns();
    if (end > there) {
        // Half as many more, since each extension numbers all columns anew.
        std::vector<int> numbers(static_cast<std::size_t>(std::max(end - there, there / 2)));
        std::iota(numbers.begin(), numbers.end(), there);
        if (m_matrix->ExtendDim(0, static_cast<int>(numbers.size()), numbers.data()) != 0)
            KVOSrvModesFailure(KVOSrvModesFailure::Internal, "a kept matrix cannot be extended").Throw("modes/GrowingColumns", __LINE__);
    }
    m_matrix->SetColumns(first, end - 1, columns);
}

void GrowingColumns::Read(int first, KVOSrvMatrix& columns) const
{
    m_matrix->GetColumns(first, first + columns.NumberOfColumns() - 1, columns);
}
