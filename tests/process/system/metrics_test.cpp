// SPDX-License-Identifier: Apache-2.0
// What cdbd and sflow-mgr serve to monitoring while they work: numbers that agree with what was done, in a
// form that Prometheus's own tool takes.

#include <filesystem>
#include <optional>

#include "support/metrics.h"
#include "support/network.h"
#include "system/system_test.h"

namespace system_tests {
namespace {

using support::Metrics;

constexpr std::uint16_t kDatabase = 16344, kManager = 16343;  // in the test's own network

class Monitoring : public testing::Test {
protected:
    void SetUp() override
    {
        const std::string problem = support::Network::WhyNot();
        if (!problem.empty()) GTEST_SKIP() << problem;
        m_network.emplace();
        m_world.emplace(WorldOptions{.cdbdArguments = {"--metrics", "127.0.0.1:16344"},
                                     .managerArguments = {"--metrics", "127.0.0.1:16343"}});
    }

    World& TheWorld() { return *m_world; }

    /// Nothing if promtool finds nothing; skips where it is missing.
    std::string Complaints(std::uint16_t port)
    {
        return TheWorld()
            .Run({"sh", "-c",
                  "python3 -c 'import urllib.request as r; "
                  "print(r.urlopen(\"http://127.0.0.1:" +
                      std::to_string(port) +
                      "/metrics\").read().decode(), end=\"\")' | promtool check metrics 2>&1 || echo failed"})
            .output;
    }

private:
    std::optional<support::Network> m_network;
    std::optional<World> m_world;
};

TEST_F(Monitoring, OfTheDatabaseCountsCommitsSessionsAndWhatIsRefused)
{
    TheWorld().Start(scenario::Usual());
    const auto before = Metrics::Fetch(kDatabase);
    EXPECT_EQ(1U, before.At("cdbd_process_connected{process=\"sflow-app\"}"));
    EXPECT_EQ(1U, before.At("cdbd_process_connected{process=\"sflow-mgr\"}"));
    EXPECT_EQ(0U, before.At("cdbd_commits_refused_total"));

    TheWorld().CliDone("set oam sflow interface eth1 sampling-rate 91; commit");
    TheWorld().CliDone("set oam sflow interface eth1 sampling-rate 92; commit; commit");
    auto client = netconf::Client::Connect(TheWorld().NetconfSocket());
    EXPECT_TRUE(client.Call(netconf::Lock("running")).ok);
    EXPECT_NE(0, TheWorld().Cli("set oam sflow interface eth1 sampling-rate 93; commit").status);
    TheWorld().CliDone("request ha go-standby");

    const auto after = Metrics::Fetch(kDatabase);
    EXPECT_EQ(before.At("cdbd_last_commit") + 2, after.At("cdbd_last_commit"));
    EXPECT_EQ(before.At("cdbd_commit_duration_seconds_count") + 2,
              after.At("cdbd_commit_duration_seconds_count"));
    EXPECT_EQ(after.At("cdbd_commit_duration_seconds_bucket{le=\"+Inf\"}"),
              after.At("cdbd_commit_duration_seconds_count"));
    EXPECT_GT(after.Exact("cdbd_commit_duration_seconds_sum"), 0.0);
    EXPECT_EQ(1U, after.At("cdbd_commits_refused_total"));
    EXPECT_EQ(1U, after.At("cdbd_sessions"));
    EXPECT_EQ(before.At("cdbd_sessions_total") + 5, after.At("cdbd_sessions_total"));
    EXPECT_EQ(before.At("cdbd_history_entries") + 2, after.At("cdbd_history_entries"));
    EXPECT_GT(after.At("cdbd_history_bytes"), before.At("cdbd_history_bytes"));
    EXPECT_EQ(std::filesystem::file_size(TheWorld().StateDir() / "data.mdb"), after.At("cdbd_store_bytes"));
    EXPECT_EQ(1U, after.At("cdbd_node_role{role=\"standby\"}"));

    TheWorld().Daemon().Kill();
    Await("the daemon's end is told",
          [] { return Metrics::Fetch(kDatabase).At("cdbd_process_connected{process=\"sflow-app\"}") == 0; });
}

TEST_F(Monitoring, OfTheManagerNamesWhatIsWrong)
{
    TheWorld().Start(scenario::Usual());
    const std::string missing =
        "sflow_problem{severity=\"broken\",reason=\"interface-missing\",interface=\"eth1\",collector=\"\"}";
    Await("the first look", [&] { return Metrics::Fetch(kManager).Has(missing); });
    TheWorld().CliDone("delete oam sflow interface eth1; commit");
    Await("the next look", [&] { return !Metrics::Fetch(kManager).Has(missing); });
    EXPECT_EQ(1U, Metrics::Fetch(kManager).At("sflow_problems_known"));
}

TEST_F(Monitoring, HasTheFormAndTheNamesThatPrometheusWants)
{
    if (TheWorld().Run({"sh", "-c", "command -v promtool"}).status != 0)
        GTEST_SKIP() << "promtool is not on this machine (Debian's package prometheus)";
    TheWorld().Start(scenario::Usual());
    Await("the first look", [] { return Metrics::Fetch(kManager).At("sflow_problems_known") == 1; });
    EXPECT_EQ("", Complaints(kDatabase));
    EXPECT_EQ("", Complaints(kManager));
}

}  // namespace
}  // namespace system_tests
