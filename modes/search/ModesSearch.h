#pragma once

#include "ModelPair.h"
#include "Panel.h"

#include "KVOSrvModes.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

class BlockLanczos;
class KVOSrvSparseFactor;
class KVOSrvSparseMatrix;
class SearchFile;
class StateWords;

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
    // How far the search for the lowest modes has come.
    enum Phase : int { kBegun, kAround, kSearching, kBeyond, kCounting, kMissing, kDone };

    void Lowest();
    bool FindAroundBound();
    bool FactorAtBound();
    std::optional<Found> SearchAroundBound();
    Panel SearchLowest();
    void OfInterval();
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
    std::vector<double> Quotients(Panel const& vectors, Panel const& massVectors) const;
    double WorstOf(std::vector<double> const& residuals, std::vector<double> const& shifted) const;
    Found Refine(Panel vectors);
    std::vector<double> LambdaOf(BlockLanczos& lanczos, int count) const;
    double Margin(double lambda) const;
    bool Certify();
    void FindMissing();
    std::unique_ptr<BlockLanczos> OutsideOfFound();

    // Of a search that is kept in a file; nothing without one.
    void OpenKept();
    void Exchange(StateWords& words);
    void ExchangeSettings(StateWords& words);
    void ReadKeptModes();
    std::unique_ptr<BlockLanczos> TakeKept();
    void KeepIfDue(BlockLanczos& lanczos);
    void Keep(BlockLanczos* lanczos, Panel* modes);
    std::uint64_t Generation() const;

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

    // What a kept search goes on from, beside shift and account.
    Phase m_phase = kBegun;
    int m_restarts = 0;           // of the present basis
    double m_next = 0.0;          // the eigenvalue behind those found, as far as it is known
    bool m_isComplete = false;    // there are no others
    double m_bound = 0.0;         // below which the eigenvalues were counted
    int m_below = 0;              // how many there are
    bool m_isAround = false;      // the modes were found from the bound itself
    double m_foundShift = 0.0;    // with which the modes were found that were counted
    std::vector<double> m_bounds; // of an interval and its slices, in the order in which they were counted
    std::vector<int> m_belowBounds;
    int m_slices = 0;    // of it that are done
    int m_place = 0;     // of the shift in the next one
    int m_keptModes = 0; // in the file in front of those found
    Found m_found;

    std::unique_ptr<SearchFile> m_file;
    std::unique_ptr<StateWords> m_kept; // of a basis that was kept and not taken up yet
    std::uint64_t m_pairFingerprint = 0;
    int m_bases = 0; // begun
};
