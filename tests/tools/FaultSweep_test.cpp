// The main job with every read, write and sync of a file failing once: one line that says why, the code that scripts know, nothing left
// behind, and no result that is not whole.

#include "Tool.h"

#include <gmock/gmock.h>

TEST(FaultSweep, OfModesEndsInOneLineAndLeavesNothing)
{
    TemporaryFolder const reports;
    std::vector<std::string> const modes{"modes", Data("bcsstk01.mtx"), Data("bcsstm01.mtx"), "--count", "3", "-o", "modes.sim"};
    int swept = 0;
    for (int const kind : {0, 1, 2})
        for (int call = 0;; ++call) {
            SCOPED_TRACE(std::to_string(kind) + ", call " + std::to_string(call));
            std::string const report = reports / "failed";
            Tool tool;
            tool.inChild = [&] {
                setenv("LD_PRELOAD", KVO_FAIL_SYSTEM_CALL, 1);
                setenv("KVO_FAIL_CALL", (std::to_string(kind) + " " + std::to_string(call) + " " + report).c_str(), 1);
            };
            Outcome const outcome = tool(modes);
            tool.inChild = [] {};
            if (!std::filesystem::remove(report)) {
                EXPECT_EQ(outcome.code, 0) << outcome.err;
                break;
            }
            ++swept;
            EXPECT_THAT(outcome.code, testing::AnyOf(0, 3, 4)) << outcome.err;
            EXPECT_EQ(std::ranges::count(outcome.err, '\n'), outcome.code == 0 ? 0 : 1) << outcome.err;
            std::map<std::string, std::string> const files = tool.Files();
            EXPECT_EQ(files.size(), outcome.code == 0 ? 1U : 0U) << files.begin()->first;
            if (outcome.code == 0) {
                EXPECT_THAT(tool.Do({"db", "ls", "modes.sim"}), testing::HasSubstr("modes"));
            }
            if (HasFailure())
                return;
        }
    EXPECT_GT(swept, 30);
}
