// SPDX-License-Identifier: Apache-2.0
// examples/prometheus: its rules by Prometheus's own tool, and each query of its dashboard on a real
// Prometheus that scrapes a switch at work.

#include <nlohmann/json.hpp>
#include <optional>

#include "support/network.h"
#include "system/system_test.h"

namespace system_tests {
namespace {

using support::Network;

const std::string kServer = "127.0.0.1:19090";  // in the test's own network

std::string Replaced(std::string text, const std::string& what, const std::string& by)
{
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
        text.replace(at, what.size(), by);
    return text;
}

class Prometheus : public testing::Test {
protected:
    void SetUp() override
    {
        if (support::Run(m_dir.Path(), {"sh", "-c", "command -v prometheus && command -v promtool"}).status !=
            0)
            GTEST_SKIP() << "prometheus is not on this machine";
    }

    static std::filesystem::path Examples() { return World::Tree() / "examples/prometheus"; }

    RunResult Tool(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "promtool");
        return support::Run(m_dir.Path(), arguments);
    }

    support::TempDir m_dir;
};

TEST_F(Prometheus, TakesTheExamples)
{
    for (const std::vector<std::string>& check :
         {std::vector<std::string>{"check", "config", Examples() / "prometheus.yml"},
          {"check", "rules", Examples() / "alerts.yml"},
          {"test", "rules", Examples() / "alerts_test.yml"}}) {
        const auto result = Tool(check);
        EXPECT_EQ(0, result.status) << result.output << result.errors;
    }
}

/// Each alert is tested: by name, since promtool does not say which it has not seen.
TEST_F(Prometheus, HasATestForEachAlert)
{
    const std::string tests = support::ReadFile(Examples() / "alerts_test.yml");
    std::istringstream rules(support::ReadFile(Examples() / "alerts.yml"));
    int alerts = 0;
    for (std::string line; std::getline(rules, line);) {
        const auto at = line.find("- alert: ");
        if (at == std::string::npos) continue;
        ++alerts;
        const std::string name = line.substr(at + 9);
        EXPECT_THAT(tests, HasSubstr("alertname: " + name + "\n        exp_alerts:\n")) << name;
    }
    EXPECT_GT(alerts, 5);
}

class DashboardOnPrometheus : public Prometheus {
protected:
    void SetUp() override
    {
        Prometheus::SetUp();
        if (IsSkipped()) return;
        if (const std::string why = Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
        m_network.emplace();
        Network::Veth("eth1", "eth1-far");
        m_world.emplace(WorldOptions{.cdbdArguments = {"--metrics", "127.0.0.1:16344"},
                                     .managerArguments = {"--metrics", "127.0.0.1:16343"}});
        m_world->Start(scenario::Usual());
        m_world->CliDone("request ha go-active");
        support::WriteFile(m_dir.Path() / "alerts.yml", support::ReadFile(Examples() / "alerts.yml"));
        support::WriteFile(
            m_dir.Path() / "prometheus.yml",
            Replaced(support::ReadFile(Examples() / "prometheus.yml"), "interval: 15s", "interval: 1s"));
        m_server = m_world->Spawn(
            "/usr/bin/prometheus",
            {"--config.file=" + (m_dir.Path() / "prometheus.yml").string(),
             "--storage.tsdb.path=" + (m_dir.Path() / "data").string(), "--web.listen-address=" + kServer},
            "prometheus");
    }

    /// The lines of the answer; none while there is no answer, or it has no number.
    std::string Answer(const std::string& query)
    {
        const auto result = Tool({"query", "instant", "http://" + kServer, query});
        const bool isNumber =
            result.output.find(" => ") != std::string::npos && result.output.find("NaN") == std::string::npos;
        return result.status == 0 && isNumber ? result.output : "";
    }

    static std::vector<std::string> Queries()
    {
        const auto board = nlohmann::json::parse(support::ReadFile(Examples() / "dashboard.json"));
        std::vector<std::string> queries;
        for (const auto& panel : board.at("panels"))
            for (const auto& target : panel.at("targets"))
                queries.push_back(
                    Replaced(Replaced(target.at("expr").get<std::string>(), "$__rate_interval", "1m"),
                             "$instance", ".*"));
        return queries;
    }

    World& TheWorld() { return *m_world; }

private:
    std::optional<Network> m_network;
    std::optional<World> m_world;
    std::unique_ptr<Process> m_server;
};

TEST_F(DashboardOnPrometheus, HasNumbersForEachQuery)
{
    Await("Prometheus has scraped both",
          [this] { return Answer("sum(up) == 2 and sum(sflow_problems_known) == 1") != ""; });
    // What counts needs two looks, and the time of a commit one in between.
    TheWorld().CliDone("set oam sflow interface eth1 sampling-rate 91; commit");
    EXPECT_EQ("", Answer("no_such_metric"));
    const auto queries = Queries();
    EXPECT_GT(queries.size(), 12U);
    for (const std::string& query : queries)
        Await("numbers for " + query, [&] { return Answer(query) != ""; });
}

}  // namespace
}  // namespace system_tests
