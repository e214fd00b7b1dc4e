// SPDX-License-Identifier: Apache-2.0
// A real sflow-mgr (see the header).

#include "samples/agent.h"

#include <stdexcept>

#include "support/metrics.h"

namespace samples_tests {
namespace {

/// In the test's own network, so that it is always free.
constexpr std::uint16_t kMetricsPort = 9100;

}  // namespace

Agent::Agent(const std::string& source, const std::vector<std::string>& arguments)
{
    support::ManagerOptions options{
        .arguments = {"--source", source, "--metrics", "127.0.0.1:" + std::to_string(kMetricsPort)}};
    options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
    m_manager.emplace(m_dir.Path(), options);
    m_service = std::make_unique<support::ServiceClient>(m_manager->Socket());
    SetAddress(kAgentAddress);
    m_service->Loaded();
}

void Agent::AddCollector(const std::string& name, std::uint16_t port, std::uint16_t datagramSize,
                         const std::string& address)
{
    m_service->AddCollector(name, address, port, datagramSize);
    AwaitTaken();
}

void Agent::DeleteCollector(const std::string& name)
{
    m_service->DeleteCollector(name);
    AwaitTaken();
}

void Agent::Update(const std::string& interface, const Sampled& settings)
{
    m_service->UpdateInterface({.name = interface,
                                .flowCollector = settings.flows,
                                .counterCollector = settings.counters,
                                .rate = settings.rate,
                                .direction = static_cast<int>(settings.direction),
                                .headerSize = settings.header,
                                .interval = settings.interval});
    AwaitTaken();
    if (!settings.flows.empty() && OfInterface(interface, "present") == 1)
        AwaitMetric("sflow_interface_sampled{interface=\"" + interface + "\"}", 1);
}

void Agent::AddFlows(const std::string& interface, const std::string& collector)
{
    m_service->AddSampleCollector(interface, collector);
    AwaitTaken();
}

void Agent::RemoveFlows(const std::string& interface, const std::string& collector)
{
    m_service->RemoveSampleCollector(interface, collector);
    AwaitTaken();
}

void Agent::AddCounters(const std::string& interface, const std::string& collector)
{
    m_service->AddCounterCollector(interface, collector);
    AwaitTaken();
}

void Agent::Unset(const std::string& interface)
{
    m_service->UnsetInterface(interface);
    AwaitTaken();
}

void Agent::SetAddress(const std::string& address)
{
    m_service->SetAgentAddress(address);
    AwaitTaken();
}

void Agent::AwaitTaken() const
{
    AwaitMetric("sflow_manager_operations_total", m_service->Operations());
    if (Metric("sflow_manager_operations_refused_total") != 0)
        throw std::runtime_error("an operation was refused:\n" + Log());
}

std::uint64_t Agent::Metric(const std::string& name) const
{
    return support::Metrics::Fetch(kMetricsPort).At(name);
}

std::uint64_t Agent::OfInterface(const std::string& interface, const std::string& name) const
{
    return support::Metrics::Fetch(kMetricsPort).OfInterface(interface, name);
}

void Agent::AwaitMetric(const std::string& name, std::uint64_t value) const
{
    std::uint64_t last = 0;
    const auto has = [&] { return (last = Metric(name)) == value; };
    if (support::Becomes(has)) return;
    throw support::TimedOut(name + " is " + std::to_string(last) + ", not " + std::to_string(value) +
                            "; the log says:\n" + Log());
}

}  // namespace samples_tests
