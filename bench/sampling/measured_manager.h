// SPDX-License-Identifier: Apache-2.0
// A real sflow-mgr on the manager's core, told what to do as the configuration daemon's service client
// tells it, and what it costs.

#ifndef SAMPLING_MEASURED_MANAGER_H
#define SAMPLING_MEASURED_MANAGER_H

#include <cstdint>
#include <filesystem>
#include <string>

#include "support/manager_process.h"
#include "support/service_client.h"

namespace sampling {

enum class Capture { kEbpf, kPacketSockets };

/// "eBPF" and so on, for the table.
std::string NameOf(Capture capture);

/// The database that the manager is connected to on a switch, which has nothing to ask: without it the
/// manager would try to connect for ever.
class SilentDatabase {
public:
    explicit SilentDatabase(const std::filesystem::path& socket);
    SilentDatabase(const SilentDatabase&) = delete;
    SilentDatabase& operator=(const SilentDatabase&) = delete;
    ~SilentDatabase();

private:
    int m_socket;
};

class MeasuredManager {
public:
    /// Started, with a session and one collector, `collectorPort` of 127.0.0.1. Throws
    /// std::runtime_error.
    MeasuredManager(Capture capture, std::uint16_t collectorPort);

    struct Interface {
        std::uint32_t rate = 1;
        std::uint16_t interval = 0;  // seconds; 0: no counters
    };
    /// Configures the interface, its collector taking flow samples and, with an interval, counters. Returns
    /// when the service has been called, as does the next.
    void Set(const std::string& device, const Interface& settings);
    void Unset(const std::string& device);

    /// The same, but return when packets are, or are no longer, sampled there.
    void Sample(const std::string& device, std::uint32_t rate);
    void StopSampling(const std::string& device);

    /// Waits until packets are sampled (or not) at the device. Throws support::TimedOut, with the log.
    void AwaitSampled(const std::string& device, bool sampled = true);

    /// That the manager has had, precise at any moment.
    [[nodiscard]] double CpuSeconds() const;
    [[nodiscard]] pid_t Pid() const { return m_manager.Pid(); }

private:
    [[nodiscard]] bool Sampled(std::uint32_t device) const;

    Capture m_capture;
    support::TempDir m_dir;
    SilentDatabase m_database;
    support::ManagerProcess m_manager;
    support::ServiceClient m_service;
};

}  // namespace sampling

#endif
