#include "KVOSrvSparseFactor.h"

#include "FactorFolder.h"
#include "FactorWorkspace.h"
#include "LowerPair.h"
#include "mumps_call.h"

#include "KVOSrvMatrix.h"
#include "KVOSrvModesFailure.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <limits>
#include <metis.h>
#include <mutex>
#include <string>
#include <vector>

namespace
{

// MUMPS's own numbers for its jobs and controls, numbered from 1 as in its manual.
enum Job { kInitialise = -1, kEnd = -2, kAnalyse = 1, kFactor = 2, kSolve = 3 };
constexpr std::int64_t kMegabyte = 1000000; // MUMPS tells memory in these
constexpr int kSelfCommunicator = -987654;  // of the sequential build
constexpr int kRelaxation = 5;              // percent of working space beyond the estimate, which is exact without exchanges of rows
constexpr int kMostRelaxation = 400;
constexpr double kPivotThreshold = 0.1; // ten times as many digits as with the usual 0.01, at the same cost

// MUMPS keeps state of the process.
std::mutex s_mumps;

class Stopwatch
{
public:
    explicit Stopwatch(double& sum) : m_sum(sum) {}
    ~Stopwatch() { m_sum += std::chrono::duration<double>(std::chrono::steady_clock::now() - m_begin).count(); }

private:
    double& m_sum;
    std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

[[noreturn]] void Fail(KVOSrvModesFailure::Kind kind, std::string_view reason, int line = __builtin_LINE())
{
    KVOSrvModesFailure(kind, reason).Throw("modes/KVOSrvSparseFactor", line);
}

std::int64_t LargeNumber(int value) // negative: millions
{
    return value >= 0 ? value : std::int64_t{value} * -1000000;
}

} // namespace

class KVOSrvSparseFactor::Repr
{
public:
    Repr(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const* mass, KVOSrvFactorSettings const& settings)
        : m_pair(stiffness, mass), m_settings(settings),
          m_folder(settings.folder != nullptr ? settings.folder : KVOSrvUtilities::GetTempDirectory().View())
    {
        Order();
        account.unknowns = m_pair.Order();
        account.entries = m_pair.Entries();
    }
    ~Repr() { Forget(); }

    void Factorize(double shift, bool positiveDefinite);
    void Solve(KVOSrvMatrix& block);

    int Size() const { return m_pair.Order(); }

    KVOSrvFactorAccount account;
    int negative = 0;
    int zero = 0;
    std::int64_t reserved = 0; // bytes of the limit, by the caller

private:
    void Order();
    void Begin();
    void Analyse();
    void ProvideWorkspace(int percent);
    void ChoosePlace();
    void PlaceOnDisk();
    void Forget();
    void Run(Job job);
    int& Control(int i) { return m_mumps.icntl[i - 1]; }
    int Told(int i) const { return m_mumps.infog[i - 1]; }
    [[noreturn]] void TellFailure();

    LowerPair m_pair;
    KVOSrvFactorSettings m_settings;
    std::string m_folder;
    std::vector<int> m_order; // of an unknown, from 1: its place in the elimination
    std::vector<double> m_scale;
    DMUMPS_STRUC_C m_mumps{};
    std::unique_ptr<FactorFolder> m_files; // where a factor was kept on the disk
    FactorWorkspace m_workspace;           // where a factor in memory lies
    bool m_begun = false;
    bool m_factored = false;
};

void KVOSrvSparseFactor::Repr::Order()
{
    Stopwatch const watch(account.orderingSeconds);
    ++account.orderings;
    if (m_pair.Entries() > std::numeric_limits<int>::max() / 2)
        Fail(KVOSrvModesFailure::Memory, "the matrices have more entries than the ordering of the unknowns can number");
    Graph graph = m_pair.FullGraph();
    auto const n = static_cast<std::size_t>(m_pair.Order());
    m_order.resize(n);
    std::vector<int> unknowns(n);
    int order = m_pair.Order();
    if (graph.neighbours.empty()) // which METIS refuses
        for (int i = 0; i < order; ++i)
            m_order[static_cast<std::size_t>(i)] = i;
    else if (METIS_NodeND(&order, graph.start.data(), graph.neighbours.data(), nullptr, nullptr, unknowns.data(), m_order.data()) !=
             METIS_OK)
        Fail(KVOSrvModesFailure::Memory, "the memory does not hold the ordering of the unknowns");
    for (int& place : m_order)
        ++place;
}

void KVOSrvSparseFactor::Repr::Run(Job job)
{
    m_mumps.job = job;
    std::unique_lock const lock(s_mumps);
    if (kvo_mumps(&m_mumps) != 0) {
        m_begun = false; // what it holds is lost
        Fail(KVOSrvModesFailure::Internal, "the factorization stopped at an error of its own; try another shift");
    }
}

void KVOSrvSparseFactor::Repr::Forget()
{
    if (!m_begun)
        return;
    try {
        Run(kEnd);
    } catch (KVOSrvModesFailure const&) { // files that it leaves go with their folder
    }
    m_begun = m_factored = false;
}

// Positive definite matrices, too, are factored as general symmetric ones, only without exchanges of rows: that takes no longer, and one
// analysis does for all shifts.
void KVOSrvSparseFactor::Repr::Begin()
{
    if (m_begun)
        return;
    m_mumps = {};
    m_mumps.sym = 2;
    m_mumps.par = 1;
    m_mumps.comm_fortran = kSelfCommunicator;
    Run(kInitialise);
    m_begun = true;
    // A factor on the disk is written by this thread, through buffers. MUMPS' own thread, the default, ends at a write that fails and
    // leaves the factorization waiting for it for ever; nor has the library threads of its own.
    constexpr int kDiskStrategy = 99, kBufferedHere = 3;
    m_mumps.keep[kDiskStrategy - 1] = kBufferedHere;
    for (int const stream : {1, 2, 3, 4})
        Control(stream) = stream == 4 ? 0 : -1; // silent
    Control(6) = 0;                             // no permutation by values
    Control(7) = 1;                             // the ordering is given
    Control(8) = 0;                             // scaled already
    Control(14) = kRelaxation;
    Control(24) = 1;          // null pivots are looked for
    m_mumps.cntl[2] = -1e-12; // of a diagonal of 1: below is rounding error, of which rigid body motions leave about n * 2^-53
    m_mumps.n = m_pair.Order();
    m_mumps.nnz = m_pair.Entries();
    m_mumps.irn = m_pair.Rows();
    m_mumps.jcn = m_pair.Columns();
    m_mumps.perm_in = m_order.data();
    Analyse();
}

void KVOSrvSparseFactor::Repr::Analyse()
{
    Stopwatch const watch(account.orderingSeconds);
    Run(kAnalyse);
    if (Told(1) < 0)
        TellFailure();
    account.flops = m_mumps.rinfog[0];
}

void KVOSrvSparseFactor::Repr::Factorize(double shift, bool positiveDefinite)
{
    m_factored = false;
    Begin();
    Stopwatch const watch(account.factorSeconds);
    std::vector<double> values;
    m_scale = m_pair.ScaledSum(shift, values);
    m_mumps.a = values.data();
    ChoosePlace();
    if (account.onDisk)
        PlaceOnDisk();
    KVOSrvUtilities::ReleaseMemory(); // the factor is the largest thing by far: what lies kept beside it would come on top
    Control(22) = account.onDisk ? 1 : 0;
    Control(23) = 0;
    m_mumps.cntl[0] = positiveDefinite ? 0.0 : kPivotThreshold;
    for (int percent = positiveDefinite ? kRelaxation : 3 * kRelaxation;; percent *= 2) {
        Control(14) = percent;
        ProvideWorkspace(percent);
        Run(kFactor);
        bool const wantsMore = Told(1) == -8 || Told(1) == -9 || Told(1) == -11;
        if (!wantsMore || percent > kMostRelaxation)
            break;
    }
    bool const hasZeroPivot = Told(1) == -10; // met without exchanges of rows
    if (Told(1) < 0 && !hasZeroPivot)
        TellFailure();
    if (!account.onDisk)
        m_workspace.KeepOnly(LargeNumber(m_mumps.info[8]));
    ++account.factorizations;
    account.factorEntries = LargeNumber(Told(29));
    account.flops = m_mumps.rinfog[2];
    account.memory = std::int64_t{Told(22)} * kMegabyte;
    negative = Told(12);
    zero = hasZeroPivot ? 1 : Told(28);
    m_factored = !hasZeroPivot;
}

// @param percent  beyond the estimate of the analysis
void KVOSrvSparseFactor::Repr::ProvideWorkspace(int percent)
{
    m_mumps.lwk_user = 0;
    m_mumps.wk_user = nullptr;
    if (account.onDisk) // MUMPS chooses the size of its buffers
        return m_workspace.Release();
    std::int64_t const estimate = LargeNumber(m_mumps.info[7]), entries = estimate + estimate / 100 * (percent - kRelaxation);
    constexpr std::int64_t kMillion = 1000000;
    bool const isLarge = entries > std::numeric_limits<int>::max(); // told in millions then
    m_mumps.lwk_user = static_cast<int>(isLarge ? -(entries / kMillion + 1) : entries);
    m_mumps.wk_user = m_workspace.Provide(LargeNumber(m_mumps.lwk_user));
    if (m_mumps.wk_user == nullptr)
        Fail(KVOSrvModesFailure::Memory, "the memory does not hold the factor");
}

// In memory or on the disk, by what the analysis expects and a fifth more for exchanges of rows.
void KVOSrvSparseFactor::Repr::ChoosePlace()
{
    std::int64_t const beside = m_pair.Bytes() + m_pair.Entries() * std::int64_t{sizeof(double)} + reserved;
    auto const needed = [&](int megabytes) { return (megabytes + megabytes / 5) * kMegabyte + beside; };
    bool const isLimited = m_settings.memory > 0;
    account.onDisk = m_settings.onDisk || (isLimited && needed(Told(17)) > m_settings.memory);
    if (isLimited && needed(Told(27)) > m_settings.memory)
        Fail(KVOSrvModesFailure::Memory,
             "the memory granted is too small; at least " + std::to_string(needed(Told(27)) / kMegabyte + 1) + "M is needed");
}

void KVOSrvSparseFactor::Repr::PlaceOnDisk()
{
    if (!m_files)
        m_files = std::make_unique<FactorFolder>(m_folder);
    std::string const& path = m_files->Path();
    if (path.size() >= sizeof m_mumps.ooc_tmpdir)
        Fail(KVOSrvModesFailure::Disk, "the name of the scratch folder is too long for the factor: " + m_folder);
    std::strcpy(m_mumps.ooc_tmpdir, path.c_str());
}

void KVOSrvSparseFactor::Repr::TellFailure()
{
    switch (Told(1)) {
    case -5:
    case -7:
    case -13:
        Fail(KVOSrvModesFailure::Memory, "the memory does not hold the factor");
    case -90:
        Fail(KVOSrvModesFailure::Disk, "the factor cannot be written or read; see whether the disk of the scratch folder is full");
    default:
        Fail(KVOSrvModesFailure::Internal, "the factorization failed with " + std::to_string(Told(1)) + ", " + std::to_string(Told(2)));
    }
}

void KVOSrvSparseFactor::Repr::Solve(KVOSrvMatrix& block)
{
    if (!m_factored || block.NumberOfRows() != Size())
        KVOSrvMtxIllegalInput("Solve").Throw("modes/KVOSrvSparseFactor", __LINE__);
    Stopwatch const watch(account.solveSeconds);
    auto const n = static_cast<std::size_t>(Size());
    auto const scale = [&] {
        for (std::size_t j = 0; j < static_cast<std::size_t>(block.NumberOfColumns()); ++j)
            for (std::size_t i = 0; i < n; ++i)
                block.Values()[i + j * n] *= m_scale[i];
    };
    scale();
    m_mumps.rhs = block.Values();
    m_mumps.nrhs = block.NumberOfColumns();
    m_mumps.lrhs = Size();
    Control(27) = -64; // columns at a time
    Run(kSolve);
    if (Told(1) < 0)
        TellFailure();
    scale();
    account.solvedColumns += block.NumberOfColumns();
}

KVOSrvSparseFactor::KVOSrvSparseFactor(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const* mass,
                                       KVOSrvFactorSettings const& settings)
{
    int const n = stiffness.NumberOfRows();
    if (stiffness.NumberOfColumns() != n || (mass != nullptr && (mass->NumberOfRows() != n || mass->NumberOfColumns() != n)))
        KVOSrvMtxIllegalInput("KVOSrvSparseFactor").Throw("modes/KVOSrvSparseFactor", __LINE__);
    m_repr = std::make_unique<Repr>(stiffness, mass, settings);
}

KVOSrvSparseFactor::~KVOSrvSparseFactor() = default;

void KVOSrvSparseFactor::Factorize(double shift, bool positiveDefinite)
{
    m_repr->Factorize(shift, positiveDefinite);
}

void KVOSrvSparseFactor::Reserve(std::int64_t bytes) noexcept
{
    m_repr->reserved = bytes;
}

void KVOSrvSparseFactor::Solve(KVOSrvMatrix& block)
{
    m_repr->Solve(block);
}

int KVOSrvSparseFactor::Order() const noexcept
{
    return m_repr->Size();
}

int KVOSrvSparseFactor::NegativePivots() const noexcept
{
    return m_repr->negative;
}

int KVOSrvSparseFactor::ZeroPivots() const noexcept
{
    return m_repr->zero;
}

KVOSrvFactorAccount const& KVOSrvSparseFactor::Account() const noexcept
{
    return m_repr->account;
}
