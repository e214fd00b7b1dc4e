// SPDX-License-Identifier: Apache-2.0
// What the suites about the manager's own settings share (see the header).

#include "system/own_settings.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>

#include <iostream>
#include <stdexcept>
#include <variant>

namespace system_tests {

void OwnSettings::SetUp()
{
    if (const std::string why = Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
    m_network.emplace();
    Network::Veth("busy", "far-end");
    m_world.emplace(Options());
}

OwnSettings::~OwnSettings()
{
    if (HasFailure() && m_world)
        for (const auto* process : {"cdbd", "sflow-mgr"})
            std::cerr << "---- log of " << process << "\n" << m_world->Log(process);
}

void OwnSettings::Start(const std::string& collector, const std::string& more)
{
    if (!m_collector) m_collector.emplace(collector);
    m_world->Start(
        scenario::Switch(R"("agent":{"ipv4":"192.0.2.9"},"collector":[{"name":"c1","ip":")" +
                         m_collector->Address() + R"(","port":)" + std::to_string(m_collector->Port()) + "}" +
                         more + R"(],"interface":[{"name":"busy","sampling-rate":1,"polling-interval":0,)" +
                         R"("flow-sampling-collector":[{"name":"c1"}]}])"));
    AwaitSampling();
}

void OwnSettings::AwaitSampling()
{
    support::Await("packets to be sampled", [&] {
        if (Sflow().at("interface").at(0).value("packet-source", "none") == "none") return false;
        Injector("far-end").Send(support::UdpFrame({}));
        return m_collector->Count() > 0;
    });
    DecodingCollector::AwaitQuiet({&*m_collector});
}

void OwnSettings::Commit(const std::string& commands)
{
    const auto result = m_world->Cli(commands + "; commit");
    EXPECT_EQ(0, result.status) << result.errors;
    EXPECT_THAT(result.errors, testing::Not(testing::HasSubstr("warning"))) << commands;
    Sflow();  // the answer comes after the settings are in effect
}

nlohmann::json OwnSettings::Sflow()
{
    nlohmann::json sflow;
    support::Await("the manager to serve its state", [&] {
        const auto result = m_world->Cli("show sflow | json");
        if (result.status != 0) return false;
        const auto shown = nlohmann::json::parse(result.output);
        sflow = shown.at("switch-state:state").at("oam").at("sflow");
        return sflow.contains("interface");
    });
    return sflow;
}

nlohmann::json OwnSettings::CollectorShown(const std::string& name)
{
    const nlohmann::json sflow = Sflow();
    for (const auto& collector : sflow.at("collector"))
        if (collector.at("name") == name) return collector;
    throw std::runtime_error("no collector " + name);
}

std::vector<std::string> OwnSettings::Problems()
{
    std::vector<std::string> lines;
    const nlohmann::json sflow = Sflow();
    if (!sflow.contains("problem")) return lines;
    for (const auto& problem : sflow.at("problem")) {
        const auto text = [&](const char* key) { return problem.at(key).get<std::string>(); };
        lines.push_back(text("subject") + " " + text("name") + " " + text("reason") + ": " + text("text"));
    }
    return lines;
}

std::vector<Sampled> OwnSettings::SamplesIn(DecodingCollector& collector)
{
    std::vector<Sampled> all;
    for (const Arrival& arrival : collector.Arrivals())
        for (const auto& sample : arrival.datagram.samples) {
            const auto* flow = std::get_if<DecodedFlow>(&sample);
            if (flow == nullptr) continue;
            char text[INET_ADDRSTRLEN];
            all.push_back({::inet_ntop(AF_INET, &arrival.from, text, sizeof text), arrival.tos / 4U,
                           arrival.datagram.subAgent, arrival.datagram.sequence, flow->sequence,
                           flow->output.value});
        }
    return all;
}

Sampled OwnSettings::Sample(DecodingCollector& collector, const std::string& device)
{
    const std::size_t before = SamplesIn(collector).size();
    Injector(device).Send(support::UdpFrame({}));
    std::vector<Sampled> all;
    support::Await("a sample", [&] { return (all = SamplesIn(collector)).size() > before; });
    EXPECT_EQ(before + 1, all.size());
    return all.back();
}

}  // namespace system_tests
