// SPDX-License-Identifier: Apache-2.0
// A real sflow-mgr in the network of the test, told what to do over its socket as the configuration
// daemon's service client tells it, and asked for its own numbers at its metrics address.

#ifndef SAMPLES_AGENT_H
#define SAMPLES_AGENT_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/manager_process.h"
#include "support/service_client.h"

namespace samples_tests {

/// The agent's address in every test.
inline constexpr const char* kAgentAddress = "192.0.2.9";

/// The numbers of the service.
enum class Direction { kEgress = 1, kIngress = 2, kBoth = 3 };

/// What an interface is told; collectors by name, empty for none.
struct Sampled {
    std::string flows{};
    std::string counters{};
    std::uint32_t rate = 1;
    std::uint16_t header = 128;
    std::uint16_t interval = 0;  // seconds
    Direction direction = Direction::kIngress;
};

class Agent {
public:
    /// Started, with a session and its agent address. Throws std::runtime_error with its log if it does
    /// not start.
    explicit Agent(const std::string& source, const std::vector<std::string>& arguments = {});

    // The operations of the service. They return when the manager has taken them.
    void AddCollector(const std::string& name, std::uint16_t port, std::uint16_t datagramSize = 1400,
                      const std::string& address = "127.0.0.1");
    void DeleteCollector(const std::string& name);
    /// Of a kernel interface that is there, it also waits until its packets are sampled.
    void Update(const std::string& interface, const Sampled& settings);
    void AddFlows(const std::string& interface, const std::string& collector);
    void RemoveFlows(const std::string& interface, const std::string& collector);
    void AddCounters(const std::string& interface, const std::string& collector);
    void Unset(const std::string& interface);
    void SetAddress(const std::string& address);

    /// A metric by its whole name, such as `sflow_interface_sampled{interface="p1"}`. Throws
    /// std::out_of_range where there is none.
    [[nodiscard]] std::uint64_t Metric(const std::string& name) const;
    /// Of an interface, without "sflow_interface_".
    [[nodiscard]] std::uint64_t OfInterface(const std::string& interface, const std::string& name) const;

    /// Waits until the metric has the value. Throws support::TimedOut.
    void AwaitMetric(const std::string& name, std::uint64_t value) const;

    [[nodiscard]] std::string Log() const { return m_manager->Log(); }
    [[nodiscard]] support::ManagerProcess& Manager() { return *m_manager; }

private:
    /// Until the operations that were sent are in effect. Throws std::runtime_error if one was refused.
    void AwaitTaken() const;

    support::TempDir m_dir;
    std::optional<support::ManagerProcess> m_manager;
    std::unique_ptr<support::ServiceClient> m_service;
};

}  // namespace samples_tests

#endif
