// SPDX-License-Identifier: Apache-2.0
// The metrics, line by line.

#include "manager/status/metrics_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>

#include "base/version.h"
#include "manager/shown.h"

namespace manager {
namespace {

Texts Lines(const std::string& text)
{
    Texts lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

const std::vector<Problem> kNone;

TEST(MetricsText, OfAManagerWithNothing)
{
    const ServiceTable table;
    EXPECT_EQ(MetricsText(View(StatusSources{table, OwnSettings()}), std::nullopt),
              "# HELP sflow_manager_build_info The version of the program; always 1.\n"
              "# TYPE sflow_manager_build_info gauge\n"
              "sflow_manager_build_info{version=\"" +
                  std::string(base::Version()) + R"("} 1
# HELP sflow_manager_session_loaded Whether the configuration daemon is connected and has said all.
# TYPE sflow_manager_session_loaded gauge
sflow_manager_session_loaded 0
# HELP sflow_manager_operations_total Operations received.
# TYPE sflow_manager_operations_total counter
sflow_manager_operations_total 0
# HELP sflow_manager_operations_refused_total Operations that could not be applied.
# TYPE sflow_manager_operations_refused_total counter
sflow_manager_operations_refused_total 0
# HELP sflow_manager_source_info How packets are sampled on this machine; always 1.
# TYPE sflow_manager_source_info gauge
sflow_manager_source_info{source="none"} 1
# HELP sflow_drops_watched Whether discarded packets are looked at.
# TYPE sflow_drops_watched gauge
sflow_drops_watched 0
# HELP sflow_problems_known Whether problems have been looked for; not before the database is connected.
# TYPE sflow_problems_known gauge
sflow_problems_known 0
)");
}

TEST(MetricsText, OfWhatIsWrong)
{
    const ServiceTable table;
    const std::vector<Problem> problems{{Subject::kAgent, "agent", Reason::kNoAgentAddress, ""},
                                        {Subject::kCollector, "c\"1", Reason::kRefused, ""},
                                        {Subject::kInterface, "eth1", Reason::kNoTraffic, ""}};
    const std::string text = MetricsText(View(StatusSources{table, OwnSettings()}), problems);
    EXPECT_THAT(text, testing::HasSubstr("sflow_problems_known 1\n"));
    EXPECT_THAT(text, testing::EndsWith(
                          R"(# TYPE sflow_problem gauge
sflow_problem{severity="broken",reason="no-agent-address",interface="",collector=""} 1
sflow_problem{severity="broken",reason="refused",interface="",collector="c\"1"} 1
sflow_problem{severity="idle",reason="no-traffic",interface="eth1",collector=""} 1
)"));
    EXPECT_THAT(MetricsText(View(StatusSources{table, OwnSettings()}), kNone),
                testing::AllOf(testing::HasSubstr("sflow_problems_known 1\n"),
                               testing::Not(testing::HasSubstr("sflow_problem{"))));
}

TEST(MetricsText, OfWhatFlows)
{
    Flowing shown;
    shown.manager.journal = {"/j", 3};
    shown.manager.refused = 2;
    shown.Update("eth2", "c1", "c1", {4096, Direction::kIngress, 128, 0});
    auto& second = shown.interfaces.at("eth2");
    second = {};
    second.dropsBuffer = 18446744073709551615U;
    second.dropsNoCollector = 5;
    auto& stream = shown.collectors.at("c1");
    stream.lostDatagrams = 6;
    stream.lostSamples = 7;
    stream.errors = 8;
    stream.lastErrorTime = WallTime(std::chrono::milliseconds{1'000'000'000'007});
    shown.manager.discards = {.running = true, .reason = "", .uncounted = 5};
    shown.drops = TwoDrops();
    Texts values;
    for (const std::string& line : Lines(MetricsText(shown.Look(), kNone)))
        if (!line.starts_with('#')) values.push_back(line);
    EXPECT_EQ(values,
              (Texts{
                  "sflow_manager_build_info{version=\"" + std::string(base::Version()) + "\"} 1",
                  R"(sflow_manager_session_loaded 1)",
                  R"(sflow_manager_operations_total 9)",
                  R"(sflow_manager_operations_refused_total 2)",
                  R"(sflow_manager_journal_errors_total 3)",
                  R"(sflow_manager_source_info{source="ebpf-tcx"} 1)",
                  R"(sflow_collector_info{collector="c1",address="192.0.2.1",port="6343"} 1)",
                  R"(sflow_collector_sending{collector="c1"} 1)",
                  R"(sflow_collector_datagrams_total{collector="c1"} 12)",
                  R"(sflow_collector_bytes_total{collector="c1"} 16000)",
                  R"(sflow_collector_lost_datagrams_total{collector="c1"} 6)",
                  R"(sflow_collector_lost_samples_total{collector="c1"} 7)",
                  R"(sflow_collector_errors_total{collector="c1"} 8)",
                  R"(sflow_collector_samples_total{collector="c1",kind="flow"} 80)",
                  R"(sflow_collector_samples_total{collector="c1",kind="counter"} 4)",
                  R"(sflow_collector_samples_total{collector="c1",kind="discard"} 9)",
                  R"(sflow_collector_last_datagram_timestamp_seconds{collector="c1"} 1795240809.623)",
                  R"(sflow_collector_last_error_timestamp_seconds{collector="c1"} 1000000000.007)",
                  R"(sflow_interface_info{interface="eth1",kernel_interface="k-eth1",ifindex="7"} 1)",
                  R"(sflow_interface_present{interface="eth1"} 1)",
                  R"(sflow_interface_present{interface="eth2"} 0)",
                  R"(sflow_interface_up{interface="eth1"} 1)",
                  R"(sflow_interface_up{interface="eth2"} 0)",
                  R"(sflow_interface_sampled{interface="eth1"} 1)",
                  R"(sflow_interface_sampled{interface="eth2"} 0)",
                  R"(sflow_interface_pending{interface="eth1"} 0)",
                  R"(sflow_interface_pending{interface="eth2"} 0)",
                  R"(sflow_interface_sampling_rate{interface="eth1"} 512)",
                  R"(sflow_interface_sampling_rate{interface="eth2"} 4096)",
                  R"(sflow_interface_polling_interval_seconds{interface="eth1"} 20)",
                  R"(sflow_interface_polling_interval_seconds{interface="eth2"} 0)",
                  R"(sflow_interface_packets_seen_total{interface="eth1"} 40960)",
                  R"(sflow_interface_packets_seen_total{interface="eth2"} 0)",
                  R"(sflow_interface_samples_total{interface="eth1"} 80)",
                  R"(sflow_interface_samples_total{interface="eth2"} 0)",
                  R"(sflow_interface_sampled_bytes_total{interface="eth1"} 8320)",
                  R"(sflow_interface_sampled_bytes_total{interface="eth2"} 0)",
                  R"(sflow_interface_counters_sent_total{interface="eth1"} 4)",
                  R"(sflow_interface_counters_sent_total{interface="eth2"} 0)",
                  R"(sflow_interface_drops_total{interface="eth1",cause="buffer"} 0)",
                  R"(sflow_interface_drops_total{interface="eth1",cause="no-collector"} 0)",
                  R"(sflow_interface_drops_total{interface="eth2",cause="buffer"} 18446744073709551615)",
                  R"(sflow_interface_drops_total{interface="eth2",cause="no-collector"} 5)",
                  R"(sflow_interface_last_sample_timestamp_seconds{interface="eth1"} 1795240808.123)",
                  R"(sflow_interface_last_counters_timestamp_seconds{interface="eth1"} 1795240750.123)",
                  R"(sflow_drops_watched 1)",
                  R"(sflow_drops_uncounted_total 5)",
                  R"(sflow_drops_total{interface="eth1",reason="NO_SOCKET"} 10)",
                  R"(sflow_drops_total{interface="eth1",reason="OTHERHOST"} 2)",
                  R"(sflow_drops_not_told_total{interface="eth1"} 3)",
                  R"(sflow_drops_not_told_total{interface="n/a"} 0)",
                  R"(sflow_problems_known 1)",
              }));
}

TEST(MetricsText, KeepEachFamilyTogetherBehindItsHelpAndType)
{
    Flowing shown;
    shown.Update("eth2");
    shown.manager.discards.running = true;
    shown.drops = TwoDrops();
    const std::regex help("# HELP ([a-z_]+) [A-Z].*\\."), type("# TYPE ([a-z_]+) (counter|gauge)"),
        value("([a-z_]+)(\\{[a-z_]+=\"[^\"]*\"(,[a-z_]+=\"[^\"]*\")*\\})? [0-9.]+");
    std::set<std::string> families;
    std::string family;
    std::string kind;
    std::smatch match;
    for (const std::string& line : Lines(MetricsText(shown.Look(), kNone))) {
        if (std::regex_match(line, match, help)) {
            EXPECT_TRUE(families.insert(match[1]).second) << line;
            family = match[1];
            kind.clear();
        } else if (std::regex_match(line, match, type)) {
            EXPECT_EQ(family, match[1]);
            EXPECT_EQ("", kind);
            kind = match[2];
            EXPECT_EQ(kind == "counter", family.ends_with("_total")) << line;
        } else {
            ASSERT_TRUE(std::regex_match(line, match, value)) << line;
            EXPECT_EQ(family, match[1]) << line;
            EXPECT_NE("", kind) << line;
        }
    }
    EXPECT_EQ(34U, families.size());
}

TEST(MetricsText, EscapeWhatWouldEndALabel)
{
    Flowing shown;
    shown.interfaces.at("eth1").kernelName = "a\\b\"c\nd";
    EXPECT_THAT(MetricsText(shown.Look(), kNone),
                testing::HasSubstr(R"(kernel_interface="a\\b\"c\nd",ifindex="7"} 1)"));
}

TEST(MetricsText, ReplaceBytesThatAreNoText)
{
    Flowing shown;
    shown.interfaces.at("eth1").kernelName = "\xC3\xBC\xFF";
    EXPECT_THAT(MetricsText(shown.Look(), kNone),
                testing::HasSubstr("kernel_interface=\"\xC3\xBC\xEF\xBF\xBD\","));
}

}  // namespace
}  // namespace manager
