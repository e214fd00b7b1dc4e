// SPDX-License-Identifier: Apache-2.0
// What cdbd takes from log.sock, and what get-log answers.

#include "agent/log/log_intake.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/agent_world.h"
#include "base/unique_fd.h"
#include "log/forward.h"
#include "netconf/client.h"
#include "netconf/requests.h"
#include "support/frames.h"
#include "support/poll.h"

namespace {

using agent::ParseLogLine;
using agent_tests::Do;
using agent_tests::Refused;
using testing::HasSubstr;
using testing::Not;

constexpr std::int64_t kNow = 1'000'000;

TEST(ParseLogLine, ReadsWhatAProcessSends)
{
    const auto line = ParseLogLine("999\tsflow-mgr\t13\tsrc/a:B:1\tno \"room\"\tleft", kNow);
    ASSERT_TRUE(line);
    EXPECT_EQ(999, line->timeUs);
    EXPECT_EQ("sflow-mgr", line->process);
    EXPECT_EQ(13, line->level);
    EXPECT_EQ("src/a:B:1", line->place);
    EXPECT_EQ("no \"room\"\\tleft", line->text);
}

TEST(ParseLogLine, DropsWhatHasNotItsForm)
{
    for (const std::string text :
         {"", "\t", "\t\t\t\t", "1\tp\t12\tplace", "x\tp\t12\tplace\ttext", "-1\tp\t12\tplace\ttext",
          "1x\tp\t12\tplace\ttext", "1\t\t12\tplace\ttext", "1\tp\t\tplace\ttext", "1\tp\t100\tplace\ttext",
          "99999999999999999999\tp\t12\tplace\ttext"})
        EXPECT_FALSE(ParseLogLine(text, kNow)) << text;
    EXPECT_TRUE(ParseLogLine("1\tp\t12\tplace\ttext", kNow));
}

TEST(ParseLogLine, TakesNoLineInTheNameOfTheDatabase)
{
    EXPECT_FALSE(ParseLogLine("1\tcdbd\t12\tplace\ttext", kNow));
}

TEST(ParseLogLine, PutsALineOfTheFutureAtTheEnd)
{
    EXPECT_EQ(kNow, ParseLogLine("2000000\tp\t12\tplace\ttext", kNow)->timeUs);
}

TEST(ParseLogLine, MakesTextOfBytes)
{
    const auto line = ParseLogLine("1\tp\xff\x01\t12\tpl\xc3\xa4 ce\t\x1b[1m \xfe\xff end", kNow);
    ASSERT_TRUE(line);
    for (const std::string& text : {line->process, line->place, line->text})
        for (const char c : text) EXPECT_GE(static_cast<unsigned char>(c), 0x20) << text;
    EXPECT_EQ(line->place, "pl\xc3\xa4 ce");
    EXPECT_EQ(line->text, "?[1m ?? end");
}

class LogIntakeTest : public testing::Test {
protected:
    LogIntakeTest() : m_client(m_world.Connect()) {}

    std::string Log(const std::string& process = {}, unsigned lines = 1000)
    {
        const netconf::Reply reply = m_client.Call(netconf::GetLog(lines, process));
        EXPECT_TRUE(reply.ok);
        return reply.xml;
    }
    void AwaitLine(const std::string& text)
    {
        support::Await("the line " + text, [&] { return Log().find(text) != std::string::npos; });
    }
    [[nodiscard]] std::string Socket() const
    {
        return m_world.NetconfSocket().parent_path() / slog::kLogSocket;
    }
    slog::Record Line(std::string_view text, std::string_view process = "sflow-mgr", int level = 12)
    {
        return {std::chrono::system_clock::now(), process, level, "src/a:B:1", text};
    }

    agent_tests::World m_world;
    netconf::Client m_client;
};

TEST_F(LogIntakeTest, AnswersWhatAProcessForwards)
{
    slog::Forwarder forwarder(Socket());
    forwarder.Take(Line("a <b> & \"c\""));
    forwarder.Take(Line("gone wrong", "other", 13));
    AwaitLine("gone wrong");
    EXPECT_THAT(Log(), HasSubstr("<process>sflow-mgr</process><severity>notice</severity>"
                                 "<place>src/a:B:1</place><text>a &lt;b&gt; &amp;"));
    EXPECT_THAT(Log("other"), HasSubstr("<severity>error</severity>"));
    EXPECT_THAT(Log("other"), Not(HasSubstr("sflow-mgr")));
    EXPECT_THAT(Log({}, 1), Not(HasSubstr("sflow-mgr")));
}

TEST_F(LogIntakeTest, RefusesNumbersThatItDoesNotAnswer)
{
    for (const unsigned lines : {0U, 1001U, 70'000U})
        Refused(m_client, netconf::GetLog(lines, {}), "invalid-value");
}

TEST_F(LogIntakeTest, SurvivesWhatNoProcessSends)
{
    for (const std::string& bytes :
         {std::string(), std::string("\n\n\n"), std::string(65536, 'x'), std::string(65536, '\0') + "\n",
          std::string("\xff\xfe\t\t\t\t\n"), std::string("1\tp\t12\tplace\twithout an end")}) {
        support::FrameClient peer(Socket());
        peer.SendBytes(bytes);
    }
    support::FrameClient peer(Socket());
    peer.SendBytes(std::string(65536, 'x') + "\n1\tp\t12\tplace\tafter one that is too long\n");
    AwaitLine("after one that is too long");
    EXPECT_THAT(Log(), Not(HasSubstr("without an end")));
    EXPECT_THAT(Log(), Not(HasSubstr("xxxx")));
}

TEST_F(LogIntakeTest, TakesLinesInPieces)
{
    support::FrameClient peer(Socket());
    for (const char c : std::string("1\tp\t12\tplace\tin pieces\n")) peer.SendBytes(std::string(1, c));
    AwaitLine("in pieces");
}

TEST_F(LogIntakeTest, SlowsALoudProcessDownWhichCountsWhatItDrops)
{
    slog::Forwarder quiet(Socket());
    quiet.Take(Line("the quiet one's", "quiet"));
    AwaitLine("the quiet one's");
    slog::Forwarder loud(Socket());
    const std::string text(4000, 'x');
    constexpr int kLines = 3000;  // more than the kernel's buffer, what may wait, and a burst
    for (int i = 0; i < kLines; ++i) loud.Take(Line(text, "loud"));
    support::Await("the line with the count", [&] {
        m_world.Advance(agent::LogIntake::kPause);
        loud.Take(Line("one more", "loud"));
        return Log("loud").find(" lines were lost before this one") != std::string::npos;
    });
    EXPECT_THAT(Log("quiet"), HasSubstr("the quiet one's"));
}

TEST_F(LogIntakeTest, BeginsAnewWithTheDatabaseAndRepeatsNoLine)
{
    slog::Forwarder forwarder(Socket());
    forwarder.Take(Line("before"));
    AwaitLine("before");
    m_world.Restart();
    m_client = m_world.Connect();
    forwarder.Take(Line("behind"));
    AwaitLine("behind");
    EXPECT_THAT(Log(), Not(HasSubstr("before</text>")));
}

TEST(Forwarder, KeepsTheLastLinesWhileTheDatabaseIsAwayAndTellsHowManyAreLost)
{
    const agent_tests::Directory directory;
    const std::string socket = directory.Path() / "log.sock";
    slog::Forwarder forwarder(socket);
    constexpr std::size_t kLost = 5;
    const auto take = [&](const std::string& text) {
        forwarder.Take({std::chrono::system_clock::now(), "p", 12, "place", text});
    };
    for (std::size_t i = 0; i < slog::Forwarder::kMostWaiting + kLost; ++i) take("line " + std::to_string(i));

    const base::UniqueFd listening(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = support::UnixAddress(socket);
    ASSERT_EQ(0, ::bind(listening.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
    ASSERT_EQ(0, ::listen(listening.Get(), 1));
    take("the last one");
    const base::UniqueFd accepted(::accept4(listening.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    std::string got;
    std::array<char, 4096> part{};
    while (got.find("the last one\n") == std::string::npos) {
        const ssize_t size = ::read(accepted.Get(), part.data(), part.size());
        ASSERT_GT(size, 0);
        got.append(part.data(), static_cast<std::size_t>(size));
    }
    EXPECT_THAT(got, HasSubstr("\t6 lines were lost before this one"));
    EXPECT_THAT(got, Not(HasSubstr("\tline 5\n")));
    EXPECT_THAT(got, HasSubstr("\tline 6\n"));
    EXPECT_EQ(slog::Forwarder::kMostWaiting + 1, static_cast<std::size_t>(std::ranges::count(got, '\n')));
}

}  // namespace
