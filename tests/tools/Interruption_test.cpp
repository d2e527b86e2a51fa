#include "Tool.h"

#include <chrono>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>

using namespace std::chrono_literals;

namespace
{

bool HoldsScratchFiles(Tool const& tool)
{
    for (auto const& entry : std::filesystem::directory_iterator(tool / ""))
        if (entry.is_directory() && !std::filesystem::is_empty(entry.path()))
            return true;
    return false;
}

} // namespace

// In the middle of the computation, when output and scratch files stand there: nothing is left, and the old result stays. A second signal
// is not kept waiting by the step that it meets.
TEST(Interruption, LeavesNoScratchFilesAndTheOldOutput)
{
    for (std::vector<int> const& signals : {std::vector{SIGINT}, {SIGTERM}, {SIGINT, SIGINT}}) {
        SCOPED_TRACE(testing::PrintToString(signals));
        Tool const tool;
        tool.Do({"make-brick", "12", "12", "12", "k.mtx", "m.mtx"});
        WriteFile(tool / "modes.sim", "good");
        auto const before = tool.Files();

        pid_t const child = tool.Start({"modes", "k.mtx", "m.mtx", "-n", "300", "-o", "modes.sim"});
        for (int k = 0; k < 6000 && !HoldsScratchFiles(tool); ++k)
            std::this_thread::sleep_for(10ms);
        EXPECT_TRUE(HoldsScratchFiles(tool));
        for (int const signal : signals) {
            kill(child, signal);
            std::this_thread::sleep_for(5ms);
        }
        Outcome const outcome = tool.Wait(child);

        EXPECT_EQ(outcome.code, 130);
        EXPECT_THAT(outcome.err, testing::HasSubstr(signals.size() == 1 ? "kvomtx: interrupted" : ""));
        EXPECT_TRUE(tool.Files() == before);
    }
}

// By nohup and in a script's background job signals are ignored, and stay so.
TEST(Interruption, IgnoresWhatTheCallerHasMadeIgnored)
{
    for (int const signal : {SIGHUP, SIGINT}) {
        Tool const tool;
        auto const before = std::signal(signal, SIG_IGN);
        pid_t const child = tool.Start({"make-brick", "12", "12", "12", "k.mtx", "m.mtx"});
        std::signal(signal, before);
        siginfo_t ended{};
        while (waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 && ended.si_pid == 0) {
            kill(child, signal);
            std::this_thread::sleep_for(10ms);
        }
        EXPECT_EQ(tool.Wait(child).code, 0);
    }
}
