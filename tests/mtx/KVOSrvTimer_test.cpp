#include "KVOSrvTimer.h"

#include "KVOFortran.h"
#include "KVOMtxLinearAlgebra.h"

#include <chrono>
#include <cmath>
#include <ctime>
#include <gtest/gtest.h>
#include <thread>

namespace
{

using Instances = omi_SingletonBase<KVOSrvTimer>;

class Timer : public testing::Test
{
protected:
    void SetUp() override
    {
        mtx_initialize(m_tally);
        ASSERT_EQ(Instances::Instance(), nullptr);
    }

    void TearDown() override
    {
        mtx_finalize(m_tally);
        EXPECT_EQ(Instances::Instance(), nullptr);
    }

    int m_tally = 0;
};

double CpuTime()
{
    double t = -1.0;
    KVOSRVGETCPUTIME(&t);
    return t;
}

double WallTime()
{
    double t = -1.0;
    KVOSRVGETWALLTIME(&t);
    return t;
}

TEST_F(Timer, IsNaNUntilItIsCreated)
{
    testing::internal::CaptureStderr();
    EXPECT_TRUE(std::isnan(CpuTime()));
    EXPECT_TRUE(std::isnan(WallTime()));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "KVOSRVGETCPUTIME: no timer was created.\nKVOSRVGETWALLTIME: no timer was created.\n");
    EXPECT_NE(Instances::Instance(), nullptr); // the readers made the singleton, not its timer
}

TEST_F(Timer, OneInstanceUntilTheModuleEnds)
{
    KVOSrvTimer& timer = omi_Singleton<KVOSrvTimer>::Instance();
    EXPECT_EQ(&omi_Singleton<KVOSrvTimer>::Instance(), &timer);
    EXPECT_EQ(Instances::Instance(), &timer);
    timer.CreateTimer();

    mtx_finalize(m_tally);
    EXPECT_EQ(Instances::Instance(), nullptr);

    mtx_initialize(m_tally);
    EXPECT_EQ(Instances::Instance(), nullptr);
    EXPECT_EQ(omi_Singleton<KVOSrvTimer>::Instance().Timer(), nullptr); // a fresh one, without the old one's timer
}

// Each time is held between readings of another clock of its kind. The threads of a BLAS provider may use processor time meanwhile.
TEST_F(Timer, TimesAscendAndAreOfTheirKind)
{
    auto const wallBefore = std::chrono::steady_clock::now();
    std::clock_t const cpuBefore = std::clock();
    omi_Singleton<KVOSrvTimer>::Instance().CreateTimer();
    double const cpu0 = CpuTime(), wall0 = WallTime();

    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    double const wall1 = WallTime(), cpu1 = CpuTime();
    double const cpuAtMost = static_cast<double>(std::clock() - cpuBefore + 1) / CLOCKS_PER_SEC;
    std::chrono::duration<double> const wallAtMost = std::chrono::steady_clock::now() - wallBefore;
    while (!(CpuTime() > cpu1)) { // ends: processor time passes in this loop
    }

    EXPECT_GE(cpu0, 0.0);
    EXPECT_GE(cpu1, cpu0);
    EXPECT_LE(cpu1, cpuAtMost);
    EXPECT_GE(wall0, 0.0);
    EXPECT_GE(wall1 - wall0, 0.2);
    EXPECT_LE(wall1, wallAtMost.count());
}

TEST_F(Timer, SecondCreateTimerStartsAnew)
{
    KVOSrvTimer& timer = omi_Singleton<KVOSrvTimer>::Instance();
    timer.CreateTimer();
    omi_Timer const* const first = timer.Timer();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));

    timer.CreateTimer();

    EXPECT_NE(timer.Timer(), first);
    double const second = WallTime();
    EXPECT_GE(first->GetElapsedTime() - second, 0.002); // deliberate: the first is lost, not freed
}

TEST_F(Timer, FailedCreateTimerKeepsTheOldOne)
{
    KVOSrvTimer& timer = omi_Singleton<KVOSrvTimer>::Instance();
    timer.CreateTimer();
    omi_Timer const* const first = timer.Timer();

    mem_FailAllocationAfter(0);
    EXPECT_THROW(timer.CreateTimer(), mem_OutOfMemory);
    mem_FailAllocationAfter(-1);

    EXPECT_EQ(timer.Timer(), first);
}

} // namespace
