// SPDX-License-Identifier: Apache-2.0
// The journal: its lines to the letter, and what happens when they can't be written.

#include "manager/service/journal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "manager/recorder.h"

namespace manager {
namespace {

struct JournalRow {
    const char* name;
    Operation operation;
    const char* line;
};

void PrintTo(const JournalRow& row, std::ostream* out) { *out << row.name; }

class JournalLine : public testing::TestWithParam<JournalRow> {};

TEST_P(JournalLine, HasNameAndArgumentsOfTheOperation)
{
    EXPECT_EQ(GetParam().line, JournalText(GetParam().operation));
}

const JournalRow kJournalRows[] = {
    {"AddCollector", Add("c1", "192.0.2.1", 6343, 1400),
     R"({"op":"AddCollector","args":["c1","192.0.2.1",6343,1400]})"},
    {"DeleteCollector", Delete("c1"), R"({"op":"DeleteCollector","args":["c1"]})"},
    {"UpdateInterface", Update("eth1", "c1"),
     R"({"op":"UpdateInterface","args":["eth1","c1","",4096,2,128,20]})"},
    {"UpdateInterfaceForCounters", Update("eth1", "", "c3", 4294967295U),
     R"({"op":"UpdateInterface","args":["eth1","","c3",4294967295,2,128,20]})"},
    {"UpdateInterfaceInBothDirections", UpdateInterface{"eth1", "", "", {1, Direction::kBoth, 65535, 65535}},
     R"({"op":"UpdateInterface","args":["eth1","","",1,3,65535,65535]})"},
    {"AddSampleCollector", AddFlow("eth1", "c1"), R"({"op":"AddSampleCollector","args":["eth1","c1"]})"},
    {"RemoveSampleCollector", RemoveFlow("eth1", "c1"),
     R"({"op":"RemoveSampleCollector","args":["eth1","c1"]})"},
    {"AddCounterCollector", AddCounter("eth1", "c1"), R"({"op":"AddCounterCollector","args":["eth1","c1"]})"},
    {"RemoveCounterCollector", RemoveCounter("eth1", "c1"),
     R"({"op":"RemoveCounterCollector","args":["eth1","c1"]})"},
    {"UnsetInterface", Unset("gigabit-ethernet-1/1/1"),
     R"({"op":"UnsetInterface","args":["gigabit-ethernet-1/1/1"]})"},
    {"SetAgentAddress", Agent("192.0.2.9"), R"({"op":"SetAgentAddress","args":["192.0.2.9"]})"},
    {"QuotesAndBackslashes", Unset("a\"b\\c"), R"({"op":"UnsetInterface","args":["a\"b\\c"]})"},
    {"ControlCharacters", Unset("a\nb\x01"), R"({"op":"UnsetInterface","args":["a\nb\u0001"]})"},
    {"BytesThatAreNoText", Unset("a\xff"), "{\"op\":\"UnsetInterface\",\"args\":[\"a\xef\xbf\xbd\"]}"},
};

INSTANTIATE_TEST_SUITE_P(Table, JournalLine, testing::ValuesIn(kJournalRows),
                         [](const auto& row) { return std::string(row.param.name); });

class JournalFile : public testing::Test {
protected:
    JournalFile()
    {
        std::string name = (std::filesystem::temp_directory_path() / "journal-test-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) std::abort();
        m_dir = name;
    }
    ~JournalFile() override { std::filesystem::remove_all(m_dir); }

    [[nodiscard]] std::string Path() const { return (m_dir / "journal").string(); }
    [[nodiscard]] std::string Content() const
    {
        std::ostringstream text;
        text << std::ifstream(Path()).rdbuf();
        return text.str();
    }

    std::filesystem::path m_dir;
};

TEST_F(JournalFile, IsAppendedTo)
{
    {
        Journal journal(Path());
        journal.NoteStep("SessionOpened");
        journal.Note(Delete("c1"));
    }
    Journal again(Path());
    again.NoteStep("SessionClosed");
    EXPECT_EQ(R"({"op":"SessionOpened"}
{"op":"DeleteCollector","args":["c1"]}
{"op":"SessionClosed"}
)",
              Content());
    EXPECT_EQ(0U, again.Errors());
}

TEST_F(JournalFile, ThatCannotBeOpenedIsNamed)
{
    try {
        Journal journal(m_dir / "no" / "such");
        FAIL() << "opened";
    } catch (const std::system_error& error) {
        EXPECT_NE(std::string::npos, std::string(error.what()).find((m_dir / "no" / "such").string()))
            << error.what();
    }
}

TEST_F(JournalFile, OnAFullDiskCountsWhatIsMissingAndGoesOn)
{
    Journal journal("/dev/full");
    journal.Note(Delete("c1"));
    journal.Note(Delete("c2"));
    EXPECT_EQ(2U, journal.Errors());
}

TEST_F(JournalFile, APipeThatNobodyReadsCostsLinesAndNoTime)
{
    ASSERT_EQ(0, ::mkfifo(Path().c_str(), 0600));
    const int reader = ::open(Path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    Journal journal(Path());
    for (int n = 0; n < 10'000 && journal.Errors() == 0; ++n) journal.Note(Delete("c1"));
    EXPECT_EQ(1U, journal.Errors());
    const std::string whole = R"({"op":"DeleteCollector","args":["c1"]})"
                              "\n";
    std::string read(std::size_t{1} << 20, '\0');
    const ssize_t size = ::read(reader, read.data(), read.size());
    EXPECT_GT(size, 0);
    EXPECT_EQ(0, size % static_cast<ssize_t>(whole.size())) << "only whole lines";
    journal.Note(Delete("c1"));
    EXPECT_EQ(1U, journal.Errors());
    EXPECT_EQ(static_cast<ssize_t>(whole.size()), ::read(reader, read.data(), read.size()));
    ::close(reader);
}

TEST_F(JournalFile, NeverKeepsHalfALine)
{
    // In a process of its own: the limit on the size of files holds for all of them.
    const std::string whole = R"({"op":"DeleteCollector","args":["c1"]})"
                              "\n";
    const auto run = [&] {
        std::signal(SIGXFSZ, SIG_IGN);
        Journal journal(Path());
        journal.Note(Delete("c1"));
        const rlimit less{whole.size() + 10, RLIM_INFINITY};
        ::setrlimit(RLIMIT_FSIZE, &less);
        journal.Note(Delete("c2"));
        journal.Note(Delete("c3"));
        const bool counted = journal.Errors() == 2;
        const rlimit more{RLIM_INFINITY, RLIM_INFINITY};
        ::setrlimit(RLIMIT_FSIZE, &more);
        journal.Note(Delete("c1"));
        ::_exit(counted && journal.Errors() == 2 ? 0 : 1);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "2 lines are missing");
    EXPECT_EQ(whole + whole, Content());
}

}  // namespace
}  // namespace manager
