// SPDX-License-Identifier: Apache-2.0
// A small switch of a test's own, with a real sflow-mgr on it: a network namespace with a bridge "br0", its
// ports "p1" and "p2" and the hosts' ends of their cables "h1" and "h2", whose hosts have the MAC addresses
// Mac(1) and Mac(2) (network.h). The test is the sFlow service's client. Nothing but the test sends there.
// Knows nothing of GoogleTest.

#ifndef TESTS_SUPPORT_SAMPLING_WORLD_H
#define TESTS_SUPPORT_SAMPLING_WORLD_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "support/decoding_collector.h"
#include "support/kernel.h"
#include "support/manager_process.h"
#include "support/metrics.h"
#include "support/network.h"
#include "support/service_client.h"

namespace support {

class SamplingWorld {
public:
    /// Moves the process into the namespace: before it has a second thread, and once. Starts the manager,
    /// with --metrics and --journal and these options, and opens the session. Throws where namespaces can't
    /// be made; see Network::WhyNot.
    explicit SamplingWorld(ManagerOptions options = {});
    SamplingWorld(const SamplingWorld&) = delete;
    SamplingWorld& operator=(const SamplingWorld&) = delete;
    ~SamplingWorld();

    [[nodiscard]] std::filesystem::path Dir() const { return m_dir.Path(); }
    [[nodiscard]] std::filesystem::path Socket() const { return m_manager->Socket(); }
    [[nodiscard]] std::filesystem::path JournalPath() const { return Dir() / "journal"; }
    [[nodiscard]] static constexpr std::uint16_t MetricsPort() { return 9100; }

    /// Another life of the manager, with the same options; the session of the one before is gone.
    void StartManager();
    /// A session of its own; Service() is the newest.
    void OpenSession();
    void CloseSession();

    [[nodiscard]] ManagerProcess& Manager() { return *m_manager; }
    [[nodiscard]] ServiceClient& Service() { return *m_service; }
    [[nodiscard]] std::string Log() const { return m_manager->Log(); }
    [[nodiscard]] Metrics Numbers() const { return Metrics::Fetch(MetricsPort()); }

    /// Waits until the operations that were sent are in effect, sampling that they begin included.
    void AwaitApplied() const;

    /// Tells the service of a collector.
    void AddCollector(const std::string& name, const DecodingCollector& at, std::uint16_t size = 1400);

    /// An Ethernet frame from the host at h`from` to that at h`to`.
    [[nodiscard]] static Bytes Frame(std::uint8_t from, std::uint8_t to, std::size_t size = 200);

private:
    ManagerOptions m_options;
    TempDir m_dir;
    Network m_network;
    std::unique_ptr<ManagerProcess> m_manager;
    std::unique_ptr<ServiceClient> m_service;
    std::uint64_t m_before = 0;  // operations of this manager's earlier sessions
};

}  // namespace support

#endif
