// SPDX-License-Identifier: Apache-2.0
// The process: what is built in which order, the run phase, teardown and exit status.

#include <fstream>
#include <stdexcept>

#include "support.h"

namespace daemon_tests {
namespace {

constexpr char kAppSource[] = "src/daemon/sflow_app";

LogLine AppLine(int level, const std::string& function, const std::string& text)
{
    return {level, function, text, kAppSource};
}

class AppTest : public DaemonTest {
protected:
    // The lines of every run that sets up, listens and ends.
    const std::vector<LogLine> wholeRun = {
        AppLine(12, "Run", "SFlow App Run"), AppLine(12, "Listen", "SFlow Application main loop"),
        AppLine(12, "Run", "SFlow App stop running!"), AppLine(10, "Finish", "Finish called")};
};

TEST_F(AppTest, BuildsRunsAndReleasesInOrder)
{
    EXPECT_EQ(SFlowApp().Execute(), 0);
    EXPECT_THAT(platform.recorder.journal,
                ElementsAre("context create", "context qxmw", "trace init sflow-app", "service build",
                            "context qxmw", "framework create", "log 12 Run: SFlow App Run",
                            "log 12 Listen: SFlow Application main loop", "loop run",
                            "log 12 Run: SFlow App stop running!", "log 10 Finish: Finish called",
                            "framework dispose", "framework delete", "service delete", "context delete"));
    ExpectLogs(wholeRun);
    ExpectCalls({});
    EXPECT_THAT(platform.recorder.faults, IsEmpty());
}

TEST_F(AppTest, SetUpWritesNoLogLine)
{
    SFlowApp app;
    app.Init();
    ExpectLogs({});
}

TEST_F(AppTest, PassesTheFrameworkItsArguments)
{
    SFlowApp app;
    app.Init();
    const fakes::FrameworkArguments& arguments = platform.framework;
    EXPECT_EQ(arguments.qxmw, qxos::the_context->GetSharedQxmw());
    EXPECT_EQ(arguments.category, platform.category);
    EXPECT_EQ(arguments.application, "sflow-app");
    EXPECT_THAT(arguments.configHandlers, ElementsAre(inside::ConfigHandler(app)));
    EXPECT_THAT(arguments.actionHandlers, IsEmpty());
    EXPECT_THAT(arguments.dataHandlers, ElementsAre(inside::SetDefault(app)));
    EXPECT_EQ(arguments.startPhase, 2);
    EXPECT_EQ(arguments.options, 0);
}

TEST_F(AppTest, NamesTheProcessInAZeroPaddedSignature)
{
    SFlowApp app;
    app.Init();
    EXPECT_EQ(platform.processName, "sflow-app");
    EXPECT_EQ(platform.signatureRest, 0U);
    EXPECT_STREQ(process_signature->name, "sflow-app");
}

TEST_F(AppTest, RegistersTheFirstTwoCallbacksOnly)
{
    SFlowApp app;
    app.Init();
    EXPECT_EQ(platform.callbacks.goActive, &inside::GoActive(app));
    EXPECT_EQ(platform.callbacks.goStandby, &inside::GoStandby(app));
    EXPECT_THAT(platform.callbacks.reserved, ElementsAre(nullptr, nullptr, nullptr));
}

TEST_F(AppTest, GivesBothHandlersTheCategory)
{
    SFlowApp app;
    app.Init();
    EXPECT_EQ(inside::AppCategory(app), platform.category);
    EXPECT_EQ(inside::Category(*inside::ConfigHandler(app)), platform.category);
    EXPECT_EQ(inside::CallpointCategory(inside::SetRate(*inside::SetDefault(app))), platform.category);
}

TEST_F(AppTest, SecondFinishIsSilentAndHarmless)
{
    SFlowApp app;
    app.Init();
    app.Finish();
    ForgetRecords();
    app.Finish();
    EXPECT_THAT(platform.recorder.journal, IsEmpty());
    EXPECT_EQ(inside::AppCategory(app), nullptr);
    EXPECT_EQ(inside::AppInterface(app), nullptr);
    EXPECT_EQ(inside::ConfigHandler(app), nullptr);
    EXPECT_EQ(inside::SetDefault(app), nullptr);
}

TEST_F(AppTest, DestructorOfARunningApplicationFinishesIt)
{
    {
        SFlowApp app;
        app.Init();
        ForgetRecords();
    }
    EXPECT_THAT(platform.recorder.journal,
                ElementsAre("log 10 Finish: Finish called", "framework dispose", "framework delete",
                            "service delete", "context delete"));
}

TEST_F(AppTest, ReplacesAndDeletesAContextThatIsInstalledAlready)
{
    qxos::the_context = new qxos::Context(process_signature, {});
    qxos::Context* const before = qxos::the_context;
    ForgetRecords();
    SFlowApp app;
    app.Init();
    EXPECT_NE(qxos::the_context, before);
    // The old one goes when the new one is in place already.
    const std::vector<std::string> journal = Journal({"context"});
    ASSERT_GE(journal.size(), 2U);
    EXPECT_EQ(journal[0], "context create");
    EXPECT_EQ(journal[1], "context delete");
    app.Finish();
    EXPECT_EQ(qxos::the_context, nullptr);
}

TEST_F(AppTest, NoContextIsInstalledWhileItIsDeleted)
{
    EXPECT_EQ(SFlowApp().Execute(), 0);
    EXPECT_EQ(platform.recorder.journal.back(), "context delete");
    EXPECT_EQ(qxos::the_context, nullptr);
}

TEST_F(AppTest, ResultOfTheLoopIsNotTheExitStatus)
{
    platform.loop = [] { return 7; };
    EXPECT_EQ(SFlowApp().Execute(), 0);
}

TEST_F(AppTest, ListenReturnsTheLoopsResult)
{
    platform.loop = [] { return 7; };
    SFlowApp app;
    app.Init();
    EXPECT_EQ(app.Listen(), 7);
}

TEST_F(AppTest, RunListensThroughTheVirtualTable)
{
    struct Listener : SFlowApp {
        int listened = 0;
        int Listen() override { return ++listened; }
    } app;
    EXPECT_EQ(app.Execute(), 0);
    EXPECT_EQ(app.listened, 1);
    ExpectLogs({wholeRun[0], wholeRun[2], wholeRun[3]});
}

struct Thrown {
    const char* name;
    std::function<int()> loop;
    std::string text;
};

void PrintTo(const Thrown& thrown, std::ostream* out) { *out << thrown.name; }

class ThrowingLoopTest : public AppTest, public testing::WithParamInterface<Thrown> {};

TEST_P(ThrowingLoopTest, IsReportedAndEndsTheRunNormallyWithStatusOne)
{
    platform.loop = GetParam().loop;
    EXPECT_EQ(SFlowApp().Execute(), 1);
    EXPECT_THAT(platform.recorder.faults, ElementsAre(Fault{0, "Run", kAppSource, GetParam().text}));
    ExpectLogs(wholeRun);
    EXPECT_THAT(Journal({"fault", "backtrace", "framework", "context"}),
                ElementsAre("context create", "context qxmw", "context qxmw", "framework create", "fault",
                            "framework dispose", "framework delete", "context delete"));
}

const std::string kLongText(400, 'x');

INSTANTIATE_TEST_SUITE_P(
    Exceptions, ThrowingLoopTest,
    testing::Values(
        Thrown{"standard", [] { return throw std::runtime_error("no memory"), 0; },
               "Exception caught!\n'no memory'.\n"},
        Thrown{"empty_text", [] { return throw std::runtime_error(""), 0; }, "Exception caught!\n''.\n"},
        Thrown{"text_longer_than_the_buffer", [] { return throw std::runtime_error(kLongText), 0; },
               "Exception caught!\n'" + std::string(349 - 19, 'x')},
        Thrown{"integer", [] { return throw 5, 0; }, "Error! Unknown exception.\n"}),
    [](const auto& row) { return row.param.name; });

TEST_F(AppTest, FaultsOfTheTwoHandlersComeFromTheirOwnLines)
{
    platform.loop = [] { return throw std::runtime_error("a"), 0; };
    SFlowApp().Execute();
    platform.loop = [] { return throw 1, 0; };
    SFlowApp().Execute();
    EXPECT_THAT(platform.recorder.faultLineNumbers,
                ElementsAre(LineOfReport(kAppSource, "Run", 1), LineOfReport(kAppSource, "Run", 2)));
}

TEST_F(AppTest, LogLinesCarryTheLineOfTheirCall)
{
    SFlowApp().Execute();
    std::ifstream file(std::string(DAEMON_SOURCES) + "/sflow_app.cpp");
    std::vector<std::string> source(1);
    for (std::string line; std::getline(file, line);) source.push_back(line);
    const std::vector<std::string> formats = {"\"SFlow App Run\"", "\"SFlow Application main loop\"",
                                              "\"SFlow App stop running!\"", "\"%s called\""};
    ASSERT_EQ(platform.recorder.logLineNumbers.size(), formats.size());
    for (std::size_t i = 0; i < formats.size(); ++i) {
        const auto number = static_cast<std::size_t>(platform.recorder.logLineNumbers[i]);
        ASSERT_LT(number, source.size());
        EXPECT_THAT(source[number], testing::HasSubstr(formats[i]));
    }
}

TEST_F(AppTest, ExceptionDuringSetUpIsCaughtNowhere)
{
    platform.onFrameworkBuilt = [] { throw std::runtime_error("no connection"); };
    EXPECT_EXIT(
        {
            // As main does it; an exception out of main ends the process through terminate.
            [&]() noexcept {
                SFlowApp app;
                app.Execute();
            }();
        },
        testing::KilledBySignal(SIGABRT),
        testing::AllOf(testing::HasSubstr("no connection"), testing::Not(testing::HasSubstr("fault"))));
}

}  // namespace
}  // namespace daemon_tests
