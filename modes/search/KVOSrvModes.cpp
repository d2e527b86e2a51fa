#include "KVOSrvModes.h"

#include "ModesSearch.h"

#include "KVOSrvMtxExceptions.h"
#include "KVOSrvScratchDenseMatrix.h"
#include "KVOSrvSparseMatrix.h"

#include <algorithm>

struct KVOSrvModes::Repr {
    std::vector<double> lambda;
    std::vector<double> residuals;
    std::unique_ptr<KVOSrvScratchDenseMatrix> modes;
    KVOSrvModesAccount account;
};

KVOSrvModes::KVOSrvModes(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass, KVOSrvModesSettings const& settings,
                         Report report, void* context)
    : m_repr(std::make_unique<Repr>())
{
    int const n = stiffness.NumberOfRows();
    bool const fits = stiffness.NumberOfColumns() == n && mass.NumberOfRows() == n && mass.NumberOfColumns() == n && n > 0;
    if (!fits || settings.count < 1)
        KVOSrvMtxIllegalInput("KVOSrvModes").Throw("modes/KVOSrvModes", __LINE__);
    ModesSearch search(stiffness, mass, ModelPair(stiffness, mass), settings, [&](KVOSrvModesProgress const& progress) {
        if (report != nullptr)
            report(context, progress);
    });
    ModesSearch::Found found = search.Run();
    m_repr->account = search.Account();
    m_repr->lambda = std::move(found.lambda);
    m_repr->residuals = std::move(found.residuals);
    if (int const count = Count(); count > 0) {
        constexpr int kChunkRows = 16384;
        m_repr->modes = std::make_unique<KVOSrvScratchDenseMatrix>(n, count, std::min(n, kChunkRows), count);
        m_repr->modes->SetColumns(0, count - 1, found.modes.View());
    }
}

KVOSrvModes::~KVOSrvModes() = default;

int KVOSrvModes::Count() const noexcept
{
    return static_cast<int>(m_repr->lambda.size());
}

double const* KVOSrvModes::Eigenvalues() const noexcept
{
    return m_repr->lambda.data();
}

double const* KVOSrvModes::Residuals() const noexcept
{
    return m_repr->residuals.data();
}

KVOSrvDenseMatrix const& KVOSrvModes::Modes() const
{
    if (!m_repr->modes)
        KVOSrvMtxIllegalInput("Modes").Throw("modes/KVOSrvModes", __LINE__);
    return *m_repr->modes;
}

KVOSrvModesAccount const& KVOSrvModes::Account() const noexcept
{
    return m_repr->account;
}
