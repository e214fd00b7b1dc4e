// SPDX-License-Identifier: Apache-2.0
// tools/demo as "make run" calls it without a terminal.

#include <algorithm>
#include <sstream>

#include "support/network.h"
#include "tools/switch_fixture.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class Demo : public SwitchFixture {
protected:
    void SetUp() override
    {
        if (const std::string reason = support::Network::WhyNot(); !reason.empty()) GTEST_SKIP() << reason;
        SwitchFixture::SetUp();
    }

    /// The lines that show calls, without the blanks before them.
    static Words Calls(const std::string& output)
    {
        Words calls;
        std::istringstream in(output);
        for (std::string line; std::getline(in, line);)
            for (const std::string operation :
                 {"    Add", "    Delete", "    Update", "    Remove", "    Unset", "    SetAgent"})
                if (line.starts_with(operation)) calls.push_back(line.substr(4));
        return calls;
    }
};

/// Of a line in UTF-8: the bytes that begin a character.
std::ptrdiff_t Columns(const std::string& line)
{
    return std::count_if(line.begin(), line.end(),
                         [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; });
}

TEST_F(Demo, ShowsTheCallsOfTheExampleAndOfOneChangeAndLeavesNothing)
{
    const auto temporary = Dir() / "tmp";
    std::filesystem::create_directory(temporary);
    const auto result =
        support::Run(Dir(), {Tool("demo"), "--bin", Programs()}, {{"TMPDIR", temporary}, {"SFLOW_LOG", ""}});
    EXPECT_EQ(0, result.status) << result.errors;
    // What each command says that it has done; the demonstration has fewer interfaces than the example.
    EXPECT_THAT(result.errors,
                AllOf(HasSubstr("commit 1: 22 changes, acknowledged by sflow-app"), Not(HasSubstr("error"))));
    EXPECT_THAT(
        Calls(result.output),
        ElementsAre("SetAgentAddress(\"192.0.2.9\")", "SetAgentAddress(\"192.0.2.9\")",
                    "AddCollector(\"billing\", \"127.0.0.2\", 6344, 1200)",
                    "AddCollector(\"noc\", \"127.0.0.1\", 6343, 1400)",
                    "UpdateInterface(\"gigabit-ethernet-1/1/1\", \"billing\", \"\", 8192, 2, 128, 20)",
                    "AddSampleCollector(\"gigabit-ethernet-1/1/1\", \"noc\")",
                    "AddCounterCollector(\"gigabit-ethernet-1/1/1\", \"noc\")",
                    "UpdateInterface(\"gigabit-ethernet-1/1/2\", \"noc\", \"\", 512, 2, 256, 20)",
                    "AddCounterCollector(\"gigabit-ethernet-1/1/2\", \"noc\")",
                    "UpdateInterface(\"gigabit-ethernet-1/1/3\", \"\", \"billing\", 8192, 2, 128, 30)",
                    "UpdateInterface(\"gigabit-ethernet-1/1/4\", \"noc\", \"\", 8192, 2, 128, 20)",
                    "RemoveSampleCollector(\"gigabit-ethernet-1/1/4\", \"lab\")",
                    "UpdateInterface(\"ten-gigabit-ethernet-1/1/5\", \"noc\", \"\", 20480, 2, 128, 10)",
                    "AddCounterCollector(\"ten-gigabit-ethernet-1/1/5\", \"billing\")",
                    "AddCounterCollector(\"ten-gigabit-ethernet-1/1/5\", \"noc\")",
                    "DeleteCollector(\"lab\")",
                    // and of the change
                    "UpdateInterface(\"gigabit-ethernet-1/1/1\", \"\", \"\", 100, 2, 128, 20)"));
    EXPECT_THAT(result.output, HasSubstr("1 in 20480"));
    EXPECT_THAT(result.output, testing::ContainsRegex("gigabit-ethernet-1/1/1 +[1-9][0-9]* ± [1-9][0-9]* "
                                                      "\\([1-9][0-9]* samples\\) +[1-9][0-9]* +[-+]"));
    EXPECT_TRUE(std::filesystem::is_empty(temporary));
}

TEST_F(Demo, FitsIntoEightyColumns)
{
    const auto result =
        support::Run(Dir(), {Tool("demo"), "--bin", Programs()}, {{"TMPDIR", Dir()}, {"SFLOW_LOG", ""}});
    EXPECT_EQ(0, result.status) << result.errors;
    std::istringstream in(result.output);
    for (std::string line; std::getline(in, line);) {
        if (line.find(Dir()) == std::string::npos) {
            EXPECT_LE(Columns(line), 80) << line;
        }
    }
}

TEST_F(Demo, GoesOnUntilThePersonLeavesWhereThereIsATerminal)
{
    const auto temporary = Dir() / "tmp";
    std::filesystem::create_directory(temporary);
    support::Process person(
        {.argv = {support::World::Tree() / "tests/process/tools/demo_terminal.py", Tool("demo"), Programs()},
         .environment = {{"TMPDIR", temporary}, {"SFLOW_LOG", ""}},
         .errors = Dir() / "errors"});
    EXPECT_EQ(0, person.Wait(std::chrono::seconds(110))) << support::ReadFile(Dir() / "errors");
    EXPECT_TRUE(std::filesystem::is_empty(temporary));
}

TEST_F(Demo, SaysWhatIsMissingAndFails)
{
    const auto result = support::Run(Dir(), {Tool("demo"), "--bin", Dir()}, {{"TMPDIR", Dir()}});
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.errors, HasSubstr("make build"));
}

}  // namespace
