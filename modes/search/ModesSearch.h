#pragma once

#include "ModelPair.h"
#include "Panel.h"

#include "KVOSrvModes.h"

#include <functional>
#include <memory>
#include <vector>

class BlockLanczos;
class KVOSrvSparseFactor;
class KVOSrvSparseMatrix;

/// The search of KVOSrvModes: which shifts are factored, when a mode is found, and that none is missed.
class ModesSearch
{
public:
    struct Found {
        std::vector<double> lambda;
        std::vector<double> residuals;
        Panel modes;
    };
    using Report = std::function<void(KVOSrvModesProgress const&)>;

    /// @param pair  of the two matrices
    ModesSearch(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass, ModelPair pair, KVOSrvModesSettings const& settings,
                Report report);
    ~ModesSearch();

    /// The lowest modes, or those of the interval.
    Found Run();
    KVOSrvModesAccount const& Account() const noexcept { return m_account; }

private:
    Found Lowest();
    Found OfInterval();
    Found OfSlice(double from, double to, int inside);

    void Reserve(int modes);
    void Tell(char const* doing, int found, int wanted, double share);
    void TellResiduals(BlockLanczos& lanczos, int found, int wanted);
    bool FactorDefinite(double shift);
    void FactorIndefinite(double sigma);
    int CountBelow(double& bound);
    void ChooseShift();
    bool MoveShift(BlockLanczos& lanczos);
    std::optional<double> NearerShift(BlockLanczos& lanczos, int wanted) const;

    std::unique_ptr<BlockLanczos> Start(int wanted);
    void Converge(BlockLanczos& lanczos, std::function<bool(int converged)> const& isEnough, int wanted);
    int Converged(BlockLanczos& lanczos) const;
    void RequireRank(BlockLanczos const& lanczos, int wanted) const;
    std::vector<double> ResidualsOf(Panel const& vectors, Panel const& massVectors, std::vector<double> const& shifted,
                                    Panel const& solved) const;
    Found Refine(Panel vectors);
    std::vector<double> LambdaOf(BlockLanczos& lanczos, int count) const;
    double Margin(double lambda) const;
    void Certify(Found& found, double next);
    void FindMissing(Found& found, double bound, int below, double shift);

    KVOSrvSparseMatrix const& m_stiffness;
    KVOSrvSparseMatrix const& m_mass;
    KVOSrvModesSettings const& m_settings;
    Report m_report;
    ModelPair const m_pair;
    int m_order;
    std::unique_ptr<KVOSrvSparseFactor> m_factor;
    double m_sigma = 0.0; // K - sigma M is factored
    bool m_definite = false;
    KVOSrvModesAccount m_account;
};
