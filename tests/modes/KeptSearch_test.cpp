// Searches that are kept: after the end of their process they go on, and give the same modes to the bit. The environment variable
// KVO_MODES_KILLS is the number of kills.

#include "KVOSrvModes.h"

#include "ChildProcess.h"
#include "FileCalls.h"
#include "SparsePairs.h"
#include "TemporaryFolder.h"

#include "KVOSimDatabase.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvModesFailure.h"
#include "KVOSrvUtilities.h"

#include <chrono>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <string>
#include <thread>

namespace
{

struct Model {
    Model(Vector const& eigenvalues, KVOSrvModesSettings const& wanted)
        : stiffness(Sparse(DiagonalMatrix(eigenvalues))), mass(Sparse(DiagonalMatrix(Vector(eigenvalues.size(), 1.0)))), settings(wanted)
    {
    }
    std::unique_ptr<KVOSrvSparseMatrix> stiffness, mass;
    KVOSrvModesSettings settings;
};

Vector Evenly(double first, double last, int count)
{
    Vector values;
    for (int i = 0; i < count; ++i)
        values.push_back(first + (last - first) * i / (count - 1));
    return values;
}

// Alike, so that the search is restarted and its shift is moved.
Model Alike()
{
    KVOSrvModesSettings settings;
    settings.count = 12;
    return {Evenly(1000.0, 2000.0, 1500), settings};
}

// More often than a block has columns, so that modes are missed at first.
Model Multiple()
{
    KVOSrvModesSettings settings;
    settings.count = 30;
    Vector lambda = Evenly(1.0, 900.0, 900);
    lambda.insert(lambda.begin(), 40, 0.5);
    return {lambda, settings};
}

// So alike that the Krylov space ends again and again: random columns go on.
Model Equal()
{
    KVOSrvModesSettings settings;
    settings.count = 40;
    Vector lambda(60, 1.0);
    lambda.insert(lambda.end(), 140, 2.0);
    return {lambda, settings};
}

// Of two slices.
Model Interval()
{
    KVOSrvModesSettings settings;
    settings.from = 100.5;
    settings.to = 190.25;
    return {Evenly(1.0, 1000.0, 1000), settings};
}

// All that came out, bit by bit.
std::string ResultOf(KVOSrvModes const& modes)
{
    int const n = modes.Modes().NumberOfRows(), count = modes.Count();
    KVOSrvMatrix x(n, count, nullptr, false, false);
    modes.Modes().GetColumns(0, count - 1, x);
    auto const bytes = [](double const* values, int size) {
        return std::string(reinterpret_cast<char const*>(values), static_cast<std::size_t>(size) * sizeof *values);
    };
    return Bytes(count, modes.Account().steps, modes.Account().restarts, modes.Account().shifts) + bytes(modes.Eigenvalues(), count) +
           bytes(modes.Residuals(), count) + bytes(x.Values(), n * count);
}

std::string Search(Model const& model, char const* keep, bool resume, KVOSrvModes::Report report = nullptr, void* context = nullptr)
{
    KVOSrvModesSettings settings = model.settings;
    settings.keep = keep;
    settings.resume = resume;
    return ResultOf(KVOSrvModes(*model.stiffness, *model.mass, settings, report, context));
}

// A folder for all that a test writes; it costs no time to sync there.
class Folder : public TemporaryFolder
{
public:
    Folder() : TemporaryFolder(FolderWithoutDisk()) { KVOSrvUtilities::SetTempDirectory(cow_String((*this / "").c_str())); }
    ~Folder() { KVOSrvUtilities::SetTempDirectory(cow_String()); }
};

// Takes its time, in which a search comes to be kept, and ends it at the report of that number.
struct Stop {
    int left = 1 << 30;
    static void Report(void* context, KVOSrvModesProgress const&)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(4));
        if (--static_cast<Stop*>(context)->left < 0)
            throw Stop();
    }
};

std::string FailureOf(std::function<void()> const& work)
{
    try {
        work();
    } catch (KVOBasException const& failure) {
        return failure.UserReport().c_str();
    }
    return "none";
}

} // namespace

TEST(KeptSearch, GoesOnAfterKillsAsIfThereHadBeenNone)
{
    char const* const wish = std::getenv("KVO_MODES_KILLS");
    int const wanted = wish != nullptr ? std::atoi(wish) : 12;
    constexpr SystemCall kKinds[] = {SystemCall::Change, SystemCall::Sync}; // at any moment, and within commits
    struct Case {
        Model model;
        std::string found = {};     // by an uninterrupted search that is not kept
        std::int64_t calls[2] = {}; // of each kind, by one that is
    };
    Stop slowly;
    Case cases[] = {{Alike()}, {Multiple()}, {Equal()}, {Interval()}};
    for (Case& each : cases) {
        each.found = Search(each.model, nullptr, false);
        for (int kind = 0; kind < 2; ++kind) {
            Folder const folder;
            SetCallFault({kKinds[kind], std::int64_t{1} << 60});
            EXPECT_TRUE(Search(each.model, (folder / "kept.sim").c_str(), false, Stop::Report, &slowly) == each.found);
            each.calls[kind] = CountedCalls();
            SetCallFault({});
        }
    }
    std::mt19937 generator(1);
    int kills = 0;
    for (int round = 0; kills < wanted; ++round) {
        SCOPED_TRACE(round);
        Case const& each = cases[round % 4];
        Folder const folder;
        std::string const path = folder / "kept.sim", result = folder / "result";
        for (int code = -SIGKILL; code != 0;) {
            bool const resume = std::filesystem::exists(path); // under its name it is complete
            unsigned const kind = generator() % 4 > 0, torn = generator() % 2;
            std::int64_t const last = generator() % each.calls[kind];
            code = ChildProcess([&] {
                       SetCallFault({kKinds[kind], last, 0, 1, torn != 0});
                       std::string const found = Search(each.model, path.c_str(), resume, Stop::Report, &slowly);
                       SetCallFault({});
                       WriteFile(result, found);
                       return 0;
                   }).Wait();
            kills += code == -SIGKILL;
            ASSERT_THAT(code, testing::AnyOf(0, -SIGKILL)) << "kill " << kills;
        }
        EXPECT_TRUE(ReadFile(result) == each.found) << "after " << kills << " kills";
    }
}

TEST(KeptSearch, AnswersAtOnceWhenItHasEnded)
{
    Folder const folder;
    Model const model = Alike();
    std::string const path = folder / "kept.sim", found = Search(model, path.c_str(), false);
    int reports = 0;
    EXPECT_TRUE(Search(
                    model, path.c_str(), true, [](void* context, KVOSrvModesProgress const&) { ++*static_cast<int*>(context); },
                    &reports) == found);
    EXPECT_EQ(reports, 0);
}

TEST(KeptSearch, OfOtherMatricesOrSettingsIsRefused)
{
    Folder const folder;
    Model model = Alike();
    std::string const path = folder / "kept.sim";
    auto const failure = [&](bool resume = true) { return FailureOf([&] { Search(model, path.c_str(), resume); }); };
    EXPECT_THAT(failure(), testing::HasSubstr("kept.sim")); // which is not there

    Search(model, path.c_str(), false);
    EXPECT_THAT(failure(false), testing::HasSubstr("kept.sim: is there; go on"));
    KVOSrvModesSettings const settings = model.settings;
    model.settings.count = 13;
    EXPECT_THAT(failure(), testing::HasSubstr("another number of modes, 12 instead of 13"));
    model.settings = settings;
    model.settings.shift = 2.5;
    EXPECT_THAT(failure(), testing::HasSubstr("another shift, none instead of 2.5"));
    Vector eigenvalues = Evenly(1000.0, 2000.0, 1500);
    eigenvalues[700] += 1e-9;
    model = Model(eigenvalues, settings);
    EXPECT_THAT(failure(), testing::HasSubstr("another stiffness and mass"));
    model = Model(Evenly(1.0, 2.0, 20), settings);
    EXPECT_THAT(failure(), testing::HasSubstr("order 1500, not 20"));

    std::string const other = folder / "modes.sim";
    {
        KVOSimDatabase database;
        database.CreateFile(DRXUnicodeString(other.c_str()), 0);
        database.CreateContext();
    }
    EXPECT_THAT(FailureOf([&] { Search(model, other.c_str(), true); }), testing::HasSubstr("keeps no search"));

    model = Model(Vector(20, -1.0), settings); // fails before its first step
    EXPECT_NE(FailureOf([&] { Search(model, (folder / "none.sim").c_str(), false); }), "none");
    EXPECT_FALSE(std::filesystem::exists(folder / "none.sim"));
}

// Of what is not 0, every so many bytes one is changed.
TEST(KeptSearch, OfADamagedFileIsRefusedOrHarmless)
{
    Folder const folder;
    Model const model = Alike();
    std::string const path = folder / "kept.sim", found = Search(model, nullptr, false);
    Stop stop{60};
    try {
        Search(model, path.c_str(), false, Stop::Report, &stop);
    } catch (Stop const&) {
    }
    if (!std::filesystem::exists(path)) // a machine so slow that nothing came to be kept
        Search(model, path.c_str(), false);
    std::string const good = ReadFile(path);
    std::vector<std::size_t> places;
    for (std::size_t at = 0; at < good.size(); ++at)
        if (good[at] != 0)
            places.push_back(at);
    int bySums = 0;
    for (std::size_t k = 5; k < places.size(); k += places.size() / 40) {
        std::size_t const at = places[k];
        SCOPED_TRACE(at);
        std::string bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 16);
        WriteFile(path, bad);
        std::string result;
        std::string const failure = FailureOf([&] { result = Search(model, path.c_str(), true); });
        EXPECT_TRUE(failure != "none" || result == found);
        bySums += failure.find("does not fit its checksum") != std::string::npos;
    }
    EXPECT_GT(bySums, 0);
}

TEST(KeptSearch, GoesOnAfterAFullDisk)
{
    Model const model = Alike();
    std::string const found = Search(model, nullptr, false);
    int failures = 0;
    for (SystemCall const kind : {SystemCall::Sync, SystemCall::Write}) {
        auto const run = [&](std::string const& path, std::int64_t successes) {
            SetCallFault({kind, successes, ENOSPC, 1 << 20});
            std::string const failure = FailureOf([&] { Search(model, path.c_str(), false); });
            std::int64_t const calls = CountedCalls();
            SetCallFault({});
            failures += failure != "none";
            return calls;
        };
        Folder const sound;
        std::int64_t const calls = run(sound / "kept.sim", std::int64_t{1} << 60);
        for (std::int64_t last = 0; last < calls; last += 1 + calls / 8) {
            SCOPED_TRACE(last);
            Folder const folder;
            std::string const path = folder / "kept.sim";
            run(path, last);
            std::string result;
            EXPECT_EQ(FailureOf([&] { result = Search(model, path.c_str(), std::filesystem::exists(path)); }), "none");
            EXPECT_TRUE(result == found);
        }
    }
    EXPECT_GT(failures, 8);
}
