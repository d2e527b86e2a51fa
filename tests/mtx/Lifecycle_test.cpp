// The program defines the start and end of the libraries below by itself; the loader takes these before those of the shared libraries. So
// the calls of the library are seen in their order, each with the tally that it was given.

#include "KVOBasModules.h"
#include "KVOMtxLinearAlgebra.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace
{

std::vector<std::string> s_calls;

// Stands for a dependent library that adds one module to the tally, or takes it off again.
void Record(char const* call, int& tally, int change)
{
    s_calls.push_back(std::string(call) + ' ' + std::to_string(tally));
    tally += change;
}

} // namespace

void KVOBasCoreUtils_initialize(int& tally)
{
    Record("+CoreUtils", tally, 1);
}
void KVOBasCoreUtils_finalize(int& tally)
{
    Record("-CoreUtils", tally, -1);
}
void KVOBasShared_initialize(int& tally)
{
    Record("+Shared", tally, 1);
}
void KVOBasShared_finalize(int& tally)
{
    Record("-Shared", tally, -1);
}
void KVOBasDrexa_initialize(int& tally)
{
    Record("+Drexa", tally, 1);
}
void KVOBasDrexa_finalize(int& tally)
{
    Record("-Drexa", tally, -1);
}
void KVOSimContainers_initialize(int& tally)
{
    Record("+Containers", tally, 1);
}
void KVOSimContainers_finalize(int& tally)
{
    Record("-Containers", tally, -1);
}
void KVOSimAPI_initialize(int& tally)
{
    Record("+API", tally, 1);
}
void KVOSimAPI_finalize(int& tally)
{
    Record("-API", tally, -1);
}
void KVOSrvBasic_initialize(int& tally)
{
    Record("+Basic", tally, 1);
}
void KVOSrvBasic_finalize(int& tally)
{
    Record("-Basic", tally, -1);
}
void KVOFsmShared_initialize(int& tally)
{
    Record("+Fsm", tally, 1);
}
void KVOFsmShared_finalize(int& tally)
{
    Record("-Fsm", tally, -1);
}
void blaC_initialize(int& tally)
{
    Record("+blaC", tally, 1);
}
void blaC_finalize(int& tally)
{
    Record("-blaC", tally, -1);
}

namespace
{

using Calls = std::vector<std::string>;

// From a tally of 100: the library itself is 101, mtx comes last to start and first to end.
Calls const kStart{"+CoreUtils 101", "+Shared 102", "+Drexa 103", "+Containers 104", "+API 105", "+Basic 106", "+Fsm 107", "+blaC 108"};
Calls const kEnd{"-blaC 108", "-Fsm 107", "-Basic 106", "-API 105", "-Containers 104", "-Drexa 103", "-Shared 102", "-CoreUtils 101"};

class Lifecycle : public testing::Test
{
protected:
    Calls Start()
    {
        s_calls.clear();
        KVOMtxLinearAlgebra_initialize(m_tally);
        return s_calls;
    }

    Calls End()
    {
        s_calls.clear();
        KVOMtxLinearAlgebra_finalize(m_tally);
        return s_calls;
    }

    int m_tally = 100;
};

TEST_F(Lifecycle, OutermostPairStartsAndEndsTheDependentLibraries)
{
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(Start(), kStart);
        EXPECT_EQ(m_tally, 110);
        EXPECT_EQ(Start(), Calls());
        EXPECT_EQ(End(), Calls());
        EXPECT_EQ(m_tally, 110);
        EXPECT_EQ(End(), kEnd);
        EXPECT_EQ(m_tally, 100);
    }
}

TEST_F(Lifecycle, EndWithoutStartMakesTheNextStartDoNothing)
{
    EXPECT_EQ(End(), Calls());
    EXPECT_EQ(Start(), Calls());
    EXPECT_EQ(m_tally, 100);
    EXPECT_EQ(Start(), kStart);
    EXPECT_EQ(m_tally, 110);
    EXPECT_EQ(End(), kEnd);
    EXPECT_EQ(m_tally, 100);
}

// A host that starts the matrix module first keeps it after the library's end; the library then counts it only once.
TEST_F(Lifecycle, MatrixModuleCountsByItself)
{
    mtx_initialize(m_tally);
    EXPECT_EQ(m_tally, 101);
    Start();
    EXPECT_EQ(m_tally, 110);
    mtx_initialize(m_tally);
    mtx_finalize(m_tally);
    EXPECT_EQ(m_tally, 110);
    End();
    EXPECT_EQ(m_tally, 101);
    mtx_finalize(m_tally);
    EXPECT_EQ(m_tally, 100);
}

} // namespace
