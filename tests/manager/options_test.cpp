// The command line of sflow-mgr.

#include "manager/options.h"

#include <gtest/gtest.h>

#include <vector>

namespace manager {
namespace {

Options Parse(std::vector<std::string> words)
{
    std::vector<char*> argv;
    words.insert(words.begin(), "sflow-mgr");
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    return ParseOptions(static_cast<int>(words.size()), argv.data());
}

TEST(CommandLine, EmptyAsksForNothing)
{
    const Options options = Parse({});
    EXPECT_EQ("", options.journal);
    EXPECT_EQ("", options.user);
    EXPECT_FALSE(options.requireSampling || options.help || options.version);
}

TEST(CommandLine, WithEveryOption)
{
    const Options options =
        Parse({"--journal", "/tmp/j", "--user=sflow", "--require-sampling", "--help", "--version"});
    EXPECT_EQ("/tmp/j", options.journal);
    EXPECT_EQ("sflow", options.user);
    EXPECT_TRUE(options.requireSampling && options.help && options.version);
}

struct Row {
    const char* name;
    std::vector<std::string> words;
    const char* fault;
};

void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }

class CommandLineFaults : public testing::TestWithParam<Row> {};

TEST_P(CommandLineFaults, AreNamed)
{
    try {
        Parse(GetParam().words);
        FAIL() << "taken";
    } catch (const UsageError& error) {
        EXPECT_STREQ(GetParam().fault, error.what());
    }
}

const Row kRows[] = {
    {"Unknown", {"--journal", "x", "--bogus"}, "no such option: --bogus"},
    {"UnknownLetter", {"-x"}, "no such option: -x"},
    {"NoValue", {"--journal"}, "option --journal needs a value"},
    {"ValueWhereNoneIs", {"--help=x"}, "no such option: --help=x"},
    {"Argument", {"file"}, "unexpected argument: file"},
};

INSTANTIATE_TEST_SUITE_P(Table, CommandLineFaults, testing::ValuesIn(kRows),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace manager
