// SPDX-License-Identifier: Apache-2.0
#include "log/log.h"

#include <sys/wait.h>

#include "base/text.h"
#include "log_fixture.h"

namespace {

using Lines = std::vector<std::string>;

class LogTest : public LogFixture {};

TEST_F(LogTest, WritesTimeProcessLevelPlaceAndText)
{
    slog::Open("cdbd");
    slog::Line(12, "src/agent/session", "Commit", 87, "commit 17 by root");
    EXPECT_EQ(Lines(), (::Lines{"cdbd 12 src/agent/session:Commit:87 commit 17 by root"}));
}

TEST_F(LogTest, ShortensTheCallersFileAndFunction)
{
    slog::Open("cdbd");
    const long line = __LINE__ + 1;
    slog::Notice("commit {} by {}", 17, "root");
    EXPECT_EQ(Lines(), (::Lines{"cdbd 12 tests/unit/log/log_test:TestBody:" + std::to_string(line) +
                                " commit 17 by root"}));
}

TEST_F(LogTest, TakesTheTextAsTextAndNotAsAFormat)
{
    slog::Open("cdbd");
    slog::Line(13, "f", "g", 1, "{} %s %n {0}");
    EXPECT_EQ(Lines(), (::Lines{"cdbd 13 f:g:1 {} %s %n {0}"}));
}

TEST_F(LogTest, EscapesControlCharacters)
{
    EXPECT_EQ(base::Printable(std::string_view("a\nb\tc\r\0d\x1b[1m\x7f\xc3\xbc", 15)),
              "a\\nb\\tc\\x0d\\x00d\\x1b[1m\\x7f\xc3\xbc");
    slog::Open("cdbd");
    slog::Line(12, "f", "g", 1, "two\nlines");
    EXPECT_EQ(Lines(), (::Lines{"cdbd 12 f:g:1 two\\nlines"}));
}

TEST_F(LogTest, WritesNoticesAndErrorsByDefault)
{
    slog::Open("cdbd");
    for (const int level : {10, 11, 12, 13, 14}) slog::Line(level, "f", "g", 1, "text");
    EXPECT_EQ(Lines(), (::Lines{"cdbd 12 f:g:1 text", "cdbd 13 f:g:1 text", "cdbd 14 f:g:1 text"}));
}

TEST_F(LogTest, WritesFromTheLevelOfTheEnvironmentOn)
{
    ::setenv("SFLOW_LOG_LEVEL", "11", 1);
    slog::Open("cdbd");
    slog::Debug("not {}", "written");
    slog::Info("written");
    EXPECT_FALSE(slog::Enabled(10));
    EXPECT_TRUE(slog::Enabled(11));
    EXPECT_EQ(Lines().size(), 1U);
}

TEST_F(LogTest, WarnsOfALevelThatIsNone)
{
    for (const char* level : {"loud", "12x", "-1", "100", "99999999999999999999", " 12"}) {
        SCOPED_TRACE(level);
        std::filesystem::remove(File());
        ::setenv("SFLOW_LOG_LEVEL", level, 1);
        slog::Open("cdbd");
        EXPECT_TRUE(slog::Enabled(12));
        EXPECT_FALSE(slog::Enabled(11));
        ASSERT_EQ(Lines().size(), 1U);
        EXPECT_NE(Lines()[0].find("SFLOW_LOG_LEVEL: \"" + std::string(level) + "\" is no level from 0 to 99"),
                  std::string::npos);
    }
}

TEST_F(LogTest, NamesAFileThatCannotBeOpenedOnStandardError)
{
    ::setenv("SFLOW_LOG", (m_directory / "missing" / "log").c_str(), 1);
    testing::internal::CaptureStderr();
    slog::Open("cdbd");
    slog::Notice("goes on");
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_NE(text.find("missing/log: No such file or directory; logging to standard error"),
              std::string::npos);
    EXPECT_NE(text.find("goes on"), std::string::npos);
}

TEST_F(LogTest, TakesADashForStandardError)
{
    ::setenv("SFLOW_LOG", "-", 1);
    testing::internal::CaptureStderr();
    slog::Open("cdbd");
    slog::Line(12, "f", "g", 1, "here");
    EXPECT_NE(testing::internal::GetCapturedStderr().find("Z cdbd 12 f:g:1 here\n"), std::string::npos);
}

TEST_F(LogTest, KeepsLinesOfSeveralProcessesWhole)
{
    constexpr int kProcesses = 4;
    constexpr int kLinesEach = 200;
    const std::string text(6000, 'x');
    for (int process = 0; process < kProcesses; ++process) {
        if (const pid_t child = ::fork(); child == 0) {
            slog::Open("p");
            for (int line = 0; line < kLinesEach; ++line) slog::Line(12, "f", "g", 1, text);
            ::_exit(0);
        }
    }
    for (int process = 0; process < kProcesses; ++process) ::wait(nullptr);
    EXPECT_EQ(Lines(), ::Lines(kProcesses * kLinesEach, "p 12 f:g:1 " + text));
}

TEST_F(LogTest, AppendsToAFileThatIsThere)
{
    slog::Open("first");
    slog::Line(12, "f", "g", 1, "one");
    slog::Open("second");
    slog::Line(12, "f", "g", 1, "two");
    EXPECT_EQ(Lines(), (::Lines{"first 12 f:g:1 one", "second 12 f:g:1 two"}));
}

// Last in this file, because the compiler is told other names of it.
// clang-format off
TEST_F(LogTest, ShortensTheFilesOfATreeThatIsInAFolderOfTheSameName)
{
    slog::Open("cdbd");
#line 1 "/home/x/src/tests/log/a.cpp"
    slog::Notice("text");
#line 1 "/home/tests/src/log/a.cpp"
    slog::Notice("text");
#line 1 "/src/bench/log/a.cpp"
    slog::Notice("text");
#line 1 "log/a.cpp"
    slog::Notice("text");
    EXPECT_EQ(Lines(), (::Lines{"cdbd 12 tests/log/a:TestBody:1 text", "cdbd 12 src/log/a:TestBody:1 text",
                                "cdbd 12 bench/log/a:TestBody:1 text", "cdbd 12 log/a:TestBody:1 text"}));
}
// clang-format on

}  // namespace
