#include "Tool.h"

#include <chrono>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
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

// In the middle of the computation, when output and scratch files stand there: nothing is left, and the old result stays.
TEST(Interruption, LeavesNoScratchFilesAndTheOldOutput)
{
    for (int const signal : {SIGINT, SIGTERM}) {
        SCOPED_TRACE(signal);
        Tool const tool;
        tool.Do({"make-brick", "12", "12", "12", "k.mtx", "m.mtx"});
        WriteFile(tool / "modes.sim", "good");
        auto const before = tool.Files();

        pid_t const child = tool.Start({"modes", "k.mtx", "m.mtx", "-n", "300", "-o", "modes.sim"});
        for (int k = 0; k < 6000 && !HoldsScratchFiles(tool); ++k)
            std::this_thread::sleep_for(10ms);
        EXPECT_TRUE(HoldsScratchFiles(tool));
        kill(child, signal);
        Outcome const outcome = tool.Wait(child);

        EXPECT_EQ(outcome.code, 130);
        EXPECT_THAT(outcome.err, testing::HasSubstr("kvomtx: interrupted"));
        EXPECT_TRUE(tool.Files() == before);
    }
}

// The step that the second signal meets is not waited for.
TEST(Interruption, SecondSignalEndsAtOnce)
{
    Tool const tool;
    tool.Do({"make-brick", "12", "12", "12", "k.mtx", "m.mtx"});
    auto const before = tool.Files();

    pid_t const child = tool.Start({"modes", "k.mtx", "m.mtx", "-n", "300", "-o", "modes.sim"});
    for (int k = 0; k < 6000 && !HoldsScratchFiles(tool); ++k)
        std::this_thread::sleep_for(10ms);
    kill(child, SIGINT);
    std::this_thread::sleep_for(5ms);
    kill(child, SIGINT);

    EXPECT_EQ(tool.Wait(child).code, 130);
    EXPECT_TRUE(tool.Files() == before);
}
