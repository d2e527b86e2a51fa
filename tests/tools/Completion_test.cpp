// What shells complete, asked from bash itself; of other shells, where they are installed, whether they understand the script.
#include "Tool.h"

#include <gtest/gtest.h>

TEST(Completion, ShellsCompleteCommandsOptionsAndFiles)
{
    Tool tool;
    for (char const* shell : {"bash", "zsh", "fish"})
        WriteFile(tool / shell, tool.Do({"completion", shell}));
    WriteFile(tool / "k.mtx", "");
    WriteFile(tool / "ask", R"(source ./bash
for line in "m" "db " "--threads 2 modes k.mtx --fo" "modes k.m" "modes -n " "db export --force k.m" "spy --mem"; do
    IFS=' ' read -ra COMP_WORDS <<<"kvomtx $line"
    [[ $line == *' ' ]] && COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1)) COMPREPLY=()
    _kvomtx
    echo "$line: ${COMPREPLY[*]}"
done
)");
    tool.program = {"/bin/bash"};
    EXPECT_EQ(tool({"ask"}).out, "m: modes make-brick\ndb : ls check export\n--threads 2 modes k.mtx --fo: --format --force\n"
                                 "modes k.m: k.mtx\nmodes -n : \ndb export --force k.m: k.mtx\nspy --mem: --memory\n");
    tool.program = {"/bin/sh", "-c", R"(! command -v "$0" >/dev/null || "$0" "$1" "$0")"};
    EXPECT_EQ(tool({"zsh", "-n"}).err, "");
    EXPECT_EQ(tool({"fish", "--no-execute"}).err, "");
}
