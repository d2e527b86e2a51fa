// The program defines the start and end of the libraries below by itself; the loader takes these before those of the shared libraries. So
// the calls of the library are seen in their order, each with the tally that it was given.

#include "KVOBasModules.h"
#include "KVOMtxLinearAlgebra.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using Calls = std::vector<std::string>;
static Calls s_calls;

// Stands for a dependent library that adds one module to the tally, or takes it off again.
static void Record(char const* call, int& tally, int change)
{
    s_calls.push_back(std::string(call) + ' ' + std::to_string(tally));
    tally += change;
}

#define KVO_STAND_IN(library)                                                                                                              \
    void library##_initialize(int& tally)                                                                                                  \
    {                                                                                                                                      \
        Record("+" #library, tally, 1);                                                                                                    \
    }                                                                                                                                      \
    void library##_finalize(int& tally)                                                                                                    \
    {                                                                                                                                      \
        Record("-" #library, tally, -1);                                                                                                   \
    }

KVO_STAND_IN(KVOBasCoreUtils)
KVO_STAND_IN(KVOBasShared)
KVO_STAND_IN(KVOBasDrexa)
KVO_STAND_IN(KVOSimContainers)
KVO_STAND_IN(KVOSimAPI)
KVO_STAND_IN(KVOSrvBasic)
KVO_STAND_IN(KVOFsmShared)
KVO_STAND_IN(blaC)

// From a tally of 100: the library itself is 101, mtx comes last to start and first to end.
Calls const kStart{"+KVOBasCoreUtils 101", "+KVOBasShared 102", "+KVOBasDrexa 103",  "+KVOSimContainers 104",
                   "+KVOSimAPI 105",       "+KVOSrvBasic 106",  "+KVOFsmShared 107", "+blaC 108"};
Calls const kEnd{"-blaC 108",        "-KVOFsmShared 107", "-KVOSrvBasic 106",    "-KVOSimAPI 105", "-KVOSimContainers 104",
                 "-KVOBasDrexa 103", "-KVOBasShared 102", "-KVOBasCoreUtils 101"};

TEST(Lifecycle, OutermostPairStartsAndEndsTheDependentLibraries)
{
    auto const start = KVOMtxLinearAlgebra_initialize, end = KVOMtxLinearAlgebra_finalize, startModule = mtx_initialize,
               endModule = mtx_finalize;
    int tally = 100;
    auto const expect = [&tally](auto const run, int tallyAfterwards, Calls const& calls) {
        s_calls.clear();
        run(tally);
        EXPECT_EQ(tally, tallyAfterwards);
        EXPECT_EQ(s_calls, calls);
    };
    expect(start, 110, kStart);
    expect(start, 110, {});
    expect(end, 110, {});
    expect(end, 100, kEnd);
    expect(end, 100, {}); // an end without a start makes the next start do nothing
    expect(start, 100, {});
    expect(start, 110, kStart);
    expect(end, 100, kEnd);

    // A host that starts the matrix module first keeps it after the library's end; the library then counts it only once.
    std::vector<int> tallies;
    for (auto const run : {startModule, start, startModule, endModule, end, endModule}) {
        run(tally);
        tallies.push_back(tally);
    }
    EXPECT_EQ(tallies, (std::vector{101, 110, 110, 110, 101, 100}));
}
