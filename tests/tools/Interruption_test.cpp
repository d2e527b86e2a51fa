#include "Tool.h"

#include <chrono>
#include <csignal>
#include <gmock/gmock.h>
#include <iterator>
#include <thread>

using namespace std::chrono_literals;

namespace
{

// Starts a long computation, and returns when its output and scratch files stand there.
pid_t StartModes(Tool const& tool, std::string const& output)
{
    pid_t const child = tool.Start({"modes", "k.mtx", "m.mtx", "-n", "300", "-o", output, "--force"});
    std::filesystem::path const scratch = tool / ("kvomtx-scratch-" + std::to_string(child));
    auto const holdsMoreThanItsMark = [&] {
        return std::filesystem::exists(scratch) && std::distance(std::filesystem::directory_iterator(scratch), {}) > 1;
    };
    for (int k = 0; k < 6000 && !holdsMoreThanItsMark(); ++k)
        std::this_thread::sleep_for(10ms);
    EXPECT_TRUE(holdsMoreThanItsMark());
    return child;
}

} // namespace

// Nothing is left, and the old result stays. A second signal is not kept waiting by the step that it meets.
TEST(Interruption, LeavesNoScratchFilesAndTheOldOutput)
{
    Tool const tool;
    tool.Do({"make-brick", "12", "12", "12", "k.mtx", "m.mtx"});
    WriteFile(tool / "modes.sim", "good");
    auto const before = tool.Files();
    for (std::vector<int> const& signals : {std::vector{SIGINT}, {SIGTERM}, {SIGINT, SIGINT}}) {
        SCOPED_TRACE(testing::PrintToString(signals));
        pid_t const child = StartModes(tool, "modes.sim");
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

// What a killed run has left goes with the next one that makes a file there; nothing else does.
TEST(Interruption, KilledRunsAreClearedUpAfterByTheNext)
{
    Tool const tool;
    tool.Do({"make-brick", "12", "12", "12", "k.mtx", "m.mtx"});
    for (char const* name : {"kvomtx-scratch-12", "k.mtx.part12", "k.mtx.part12-old"}) // not marked
        std::filesystem::create_directory(tool / name);
    WriteFile(tool / "m.mtx.part12", "a file of somebody");
    auto const before = tool.Files();
    pid_t const killed = StartModes(tool, "killed.sim");
    kill(killed, SIGKILL);
    EXPECT_EQ(tool.Wait(killed).code, -SIGKILL);
    EXPECT_GT(tool.Files().size(), before.size() + 1) << "scratch folder and output";
    auto const left = tool.Files();

    pid_t const running = StartModes(tool, "running.sim");
    auto const during = tool.Files();
    tool.Do({"convert", "m.mtx", "new.mtx"});
    std::filesystem::remove(tool / "new.mtx");
    EXPECT_TRUE(tool.Files() == during) << "what is in use was removed";
    for (auto const& [name, content] : left)
        EXPECT_EQ(during.contains(name), before.contains(name)) << name;
    kill(running, SIGINT);
    EXPECT_EQ(tool.Wait(running).code, 130);
    EXPECT_TRUE(tool.Files() == before);
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
