// SPDX-License-Identifier: Apache-2.0
// The command line of sflow-mgr.

#include "manager/process/options.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "base/options/options.h"

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
    EXPECT_EQ("sflow-switch", options.switchGroup);
    EXPECT_TRUE(options.allow.empty());
    EXPECT_EQ("", options.user);
    EXPECT_FALSE(options.requireSampling || options.help || options.version);
    EXPECT_FALSE(options.direction || options.metrics);
    EXPECT_EQ("auto", options.source);
    EXPECT_EQ(0x73464c77U, options.mark);
    EXPECT_EQ(0U, options.ringSize);
    EXPECT_FALSE(options.expediteRcu);
    EXPECT_EQ(std::chrono::seconds(10), options.resyncAfter);
}

TEST(CommandLine, WithEveryOption)
{
    const Options options =
        Parse({"--journal", "/tmp/j", "--user=sflow", "--require-sampling", "--direction", "both", "--source",
               "packet-socket", "--mark=7", "--ring-size", "4M", "--expedite-rcu", "--resync-after", "0",
               "--metrics", "127.0.0.1:9100", "--help", "--version"});
    EXPECT_EQ("/tmp/j", options.journal);
    EXPECT_EQ("sflow", options.user);
    EXPECT_TRUE(options.requireSampling && options.expediteRcu && options.help && options.version);
    EXPECT_EQ(Direction::kBoth, options.direction);
    EXPECT_EQ("packet-socket", options.source);
    EXPECT_EQ(7U, options.mark);
    EXPECT_EQ(std::chrono::seconds(0), options.resyncAfter);
    EXPECT_EQ(std::size_t{4} << 20, options.ringSize);
    EXPECT_EQ((metrics::Address{"127.0.0.1", 9100}), options.metrics);
}

TEST(CommandLine, SaysWhoMayHaveTheSession)
{
    const Options options =
        Parse({"--switch-group", "root", "--allow=session=root,@0", "--allow", "session=4711"});
    EXPECT_EQ("root", options.switchGroup);
    EXPECT_EQ((std::vector<std::string>{"session=root,@0", "session=4711"}), options.allow);
}

TEST(CommandLine, TakesEveryValueOfAnOption)
{
    EXPECT_EQ(Direction::kIngress, Parse({"--direction=ingress"}).direction);
    EXPECT_EQ(Direction::kEgress, Parse({"--direction=egress"}).direction);
    for (const char* source : {"auto", "ebpf", "ebpf-tcx", "ebpf-clsact", "packet-socket"})
        EXPECT_EQ(source, Parse({"--source", source}).source);
    EXPECT_EQ(0U, Parse({"--mark=0"}).mark);
    EXPECT_EQ(4294967295U, Parse({"--mark=4294967295"}).mark);
    EXPECT_EQ(0xabcDEF01U, Parse({"--mark=0xabcDEF01"}).mark);
    EXPECT_EQ(65536U, Parse({"--ring-size=65536"}).ringSize);
    EXPECT_EQ(65536U, Parse({"--ring-size=64k"}).ringSize);
    EXPECT_EQ(std::size_t{1} << 30, Parse({"--ring-size=1024M"}).ringSize);
    EXPECT_EQ((metrics::Address{"::1", 65535}), Parse({"--metrics=[::1]:65535"}).metrics);
    EXPECT_EQ((metrics::Address{"127.9.9.9", 1}), Parse({"--metrics=127.9.9.9:1"}).metrics);
}

TEST(CommandLine, IsDescribedWithEveryOption)
{
    for (const char* option :
         {"--journal", "--user", "--require-sampling", "--source", "--direction", "--ring-size",
          "--expedite-rcu", "--resync-after", "--mark", "--metrics", "--help", "--version"})
        EXPECT_NE(std::string::npos, UsageText().find(option)) << option;
}

struct FaultRow {
    const char* name;
    std::vector<std::string> words;
    const char* fault;
};

void PrintTo(const FaultRow& row, std::ostream* out) { *out << row.name; }

class CommandLineFaults : public testing::TestWithParam<FaultRow> {};

TEST_P(CommandLineFaults, AreNamed)
{
    try {
        Parse(GetParam().words);
        FAIL() << "taken";
    } catch (const base::UsageError& error) {
        EXPECT_STREQ(GetParam().fault, error.what());
    }
}

const FaultRow kFaultRows[] = {
    {"Unknown", {"--journal", "x", "--bogus"}, "no such option: --bogus"},
    {"UnknownLetter", {"-x"}, "no such option: -x"},
    {"NoGroup",
     {"--switch-group", "no-such-group"},
     "option --switch-group: \"no-such-group\" is no group of this machine; make it, or name another"},
    {"NoUser",
     {"--allow", "session=no-such-user"},
     "option --allow: \"session=no-such-user\": there is no user \"no-such-user\" on this machine"},
    {"NoValue", {"--journal"}, "option --journal needs a value"},
    {"ValueWhereNoneIs", {"--help=x"}, "no such option: --help=x"},
    {"Argument", {"file"}, "unexpected argument: file"},
    {"ResyncAfter",
     {"--resync-after", "soon"},
     "option --resync-after: \"soon\" is no number of seconds from 0 to 86400; 0 turns it off"},
    {"ResyncAfterTooLong",
     {"--resync-after=86401"},
     "option --resync-after: \"86401\" is no number of seconds from 0 to 86400; 0 turns it off"},
    {"Direction",
     {"--direction", "in"},
     "option --direction: \"in\" is no direction; use ingress, egress or both"},
    {"Source",
     {"--source", "pcap"},
     "option --source: \"pcap\" is no source of packets; use auto, ebpf, ebpf-tcx, ebpf-clsact or "
     "packet-socket"},
    {"MarkTooLarge",
     {"--mark", "4294967296"},
     "option --mark: \"4294967296\" is no mark; use a number up to 4294967295, 0x for hexadecimal"},
    {"MarkWithoutDigits",
     {"--mark", "0x"},
     "option --mark: \"0x\" is no mark; use a number up to 4294967295, 0x for hexadecimal"},
    {"MarkWithMore",
     {"--mark", "12x"},
     "option --mark: \"12x\" is no mark; use a number up to 4294967295, 0x for hexadecimal"},
    {"RingSizeTooSmall",
     {"--ring-size", "63k"},
     "option --ring-size: \"63k\" is no size; use bytes from 64k to 1024M, with k or M behind the number"},
    {"RingSizeTooLarge",
     {"--ring-size", "1025M"},
     "option --ring-size: \"1025M\" is no size; use bytes from 64k to 1024M, with k or M behind the number"},
    {"RingSizeThatWouldOverflow",
     {"--ring-size", "18446744073709551615M"},
     "option --ring-size: \"18446744073709551615M\" is no size; use bytes from 64k to 1024M, with k or M "
     "behind "
     "the number"},
    {"RingSizeWithoutNumber",
     {"--ring-size", "M"},
     "option --ring-size: \"M\" is no size; use bytes from 64k to 1024M, with k or M behind the number"},
    {"RingSizeNegative",
     {"--ring-size", "-1"},
     "option --ring-size: \"-1\" is no size; use bytes from 64k to 1024M, with k or M behind the number"},
    {"MetricsWithoutPort",
     {"--metrics", "127.0.0.1"},
     "option --metrics: \"127.0.0.1\" is no address with a port; use 127.0.0.1:PORT or [::1]:PORT"},
    {"MetricsWithoutAddress",
     {"--metrics", ":9100"},
     "option --metrics: \":9100\" is no address with a port; use 127.0.0.1:PORT or [::1]:PORT"},
    {"MetricsAtPort0",
     {"--metrics", "127.0.0.1:0"},
     "option --metrics: \"127.0.0.1:0\" is no address with a port; use 127.0.0.1:PORT or [::1]:PORT"},
    {"MetricsAtAPortTooLarge",
     {"--metrics", "127.0.0.1:65536"},
     "option --metrics: \"127.0.0.1:65536\" is no address with a port; use 127.0.0.1:PORT or [::1]:PORT"},
    {"MetricsByName",
     {"--metrics", "localhost:9100"},
     "option --metrics: \"localhost:9100\" is no address with a port; use 127.0.0.1:PORT or [::1]:PORT"},
    {"MetricsAtVersion6WithoutBrackets",
     {"--metrics", "::1:9100"},
     "option --metrics: \"::1:9100\" is no address with a port; use 127.0.0.1:PORT or [::1]:PORT"},
    {"MetricsForEverybody",
     {"--metrics", "0.0.0.0:9100"},
     "option --metrics: \"0.0.0.0:9100\" can be reached from elsewhere, and metrics have no access control; "
     "use "
     "127.0.0.1:PORT or [::1]:PORT, and a proxy for others"},
    {"MetricsForEverybodyByVersion6",
     {"--metrics", "[::]:9100"},
     "option --metrics: \"[::]:9100\" can be reached from elsewhere, and metrics have no access control; use "
     "127.0.0.1:PORT or [::1]:PORT, and a proxy for others"},
};

INSTANTIATE_TEST_SUITE_P(Table, CommandLineFaults, testing::ValuesIn(kFaultRows),
                         [](const auto& row) { return std::string(row.param.name); });

/// Words such as "--ring-size".
std::set<std::string> OptionsIn(const std::string& text)
{
    static const std::regex option("--[a-z]+(-[a-z]+)*");
    return {std::sregex_token_iterator(text.begin(), text.end(), option), std::sregex_token_iterator()};
}

TEST(CommandLine, IsThatOfTheManualAndOfTheUsage)
{
    std::ifstream file(SFLOW_TEST_MAN_DIR "/sflow-mgr.8");
    std::string manual(std::istreambuf_iterator<char>(file), {});
    for (std::size_t at; (at = manual.find("\\-")) != std::string::npos;) manual.erase(at, 1);
    const std::set<std::string> options = OptionsIn(UsageText());
    EXPECT_EQ(options, OptionsIn(manual));
    EXPECT_EQ(14U, options.size());
    // Each of them is one that is taken, with a value or without.
    for (const std::string& option : options) {
        try {
            Parse({option});
        } catch (const base::UsageError& error) {
            EXPECT_EQ("option " + option + " needs a value", std::string(error.what()));
        }
    }
}

}  // namespace
}  // namespace manager
