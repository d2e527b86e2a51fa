#include "KVOSrvTimer.h"

#include "KVOFortran.h"
#include "KVOMtxLinearAlgebra.h"

#include <chrono>
#include <cmath>
#include <ctime>
#include <gtest/gtest.h>
#include <thread>

using Instances = omi_SingletonBase<KVOSrvTimer>;

static double TimeOf(void (*clock)(double*))
{
    double t = -1.0;
    clock(&t);
    return t;
}

// Each time is held between readings of another clock of its kind. The threads of a BLAS provider may use processor time meanwhile.
TEST(Timer, TimesAreNaNUntilItIsCreatedAndThenOfTheirKind)
{
    int tally = 0;
    mtx_initialize(tally);
    ASSERT_EQ(Instances::Instance(), nullptr);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(std::isnan(TimeOf(KVOSRVGETCPUTIME)));
    EXPECT_TRUE(std::isnan(TimeOf(KVOSRVGETWALLTIME)));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "KVOSRVGETCPUTIME: no timer was created.\nKVOSRVGETWALLTIME: no timer was created.\n");

    auto const wallBefore = std::chrono::steady_clock::now();
    std::clock_t const cpuBefore = std::clock();
    KVOSrvTimer& timer = omi_Singleton<KVOSrvTimer>::Instance();
    timer.CreateTimer();
    double const cpu0 = TimeOf(KVOSRVGETCPUTIME), wall0 = TimeOf(KVOSRVGETWALLTIME);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    double const wall1 = TimeOf(KVOSRVGETWALLTIME), cpu1 = TimeOf(KVOSRVGETCPUTIME);
    double const cpuAtMost = static_cast<double>(std::clock() - cpuBefore + 1) / CLOCKS_PER_SEC;
    std::chrono::duration<double> const wallAtMost = std::chrono::steady_clock::now() - wallBefore;
    while (!(TimeOf(KVOSRVGETCPUTIME) > cpu1)) { // ends: processor time passes in this loop
    }

    EXPECT_TRUE(0.0 <= cpu0 && cpu0 <= cpu1 && cpu1 <= cpuAtMost) << cpu0 << ' ' << cpu1 << ' ' << cpuAtMost;
    EXPECT_TRUE(0.0 <= wall0 && wall0 + 0.2 <= wall1 && wall1 <= wallAtMost.count()) << wall0 << ' ' << wall1;

    omi_Timer const* const first = timer.Timer();
    mem_FailAllocationAfter(0);
    EXPECT_THROW(timer.CreateTimer(), mem_OutOfMemory);
    EXPECT_EQ(timer.Timer(), first);
    timer.CreateTimer(); // starts anew
    double const second = TimeOf(KVOSRVGETWALLTIME);
    EXPECT_GE(first->GetElapsedTime() - second, 0.2); // deliberate: the first is lost, not freed

    mtx_finalize(tally);
    EXPECT_EQ(Instances::Instance(), nullptr);
}
