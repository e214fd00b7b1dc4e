// SPDX-License-Identifier: Apache-2.0
// The sFlow service's client, played by a test: one session with a running sflow-mgr and the operations of
// the service as calls. Blocking. Names and numbers are sent as given, good or bad.

#ifndef TESTS_SUPPORT_SERVICE_CLIENT_H
#define TESTS_SUPPORT_SERVICE_CLIENT_H

#include <cstdint>
#include <filesystem>
#include <string>

#include "support/frames.h"

namespace support {

class ServiceClient {
public:
    /// Connects and opens the session. Throws std::runtime_error, with the manager's reason if it
    /// refuses.
    explicit ServiceClient(const std::filesystem::path& socket);

    struct Interface {
        std::string name;
        std::string flowCollector{};     // empty: none
        std::string counterCollector{};  // empty: none
        std::uint32_t rate = 1;
        int direction = 2;  // 1 egress, 2 ingress, 3 both
        std::uint16_t headerSize = 128;
        std::uint16_t interval = 0;  // seconds
    };

    /// Addresses are dotted-decimal text.
    void SetAgentAddress(const std::string& address);
    void AddCollector(const std::string& name, const std::string& address, std::uint16_t port,
                      std::uint16_t datagramSize = 1400);
    void DeleteCollector(const std::string& name);
    void UpdateInterface(const Interface& interface);
    void AddSampleCollector(const std::string& interface, const std::string& collector);
    void RemoveSampleCollector(const std::string& interface, const std::string& collector);
    void AddCounterCollector(const std::string& interface, const std::string& collector);
    void RemoveCounterCollector(const std::string& interface, const std::string& collector);
    void UnsetInterface(const std::string& interface);
    /// The mark at the end of a load: what an earlier session left and this one has not named goes.
    void Loaded();

    /// The session's connection, for bytes of the test's own.
    [[nodiscard]] FrameClient& Connection() { return m_connection; }

    /// Operations sent, the mark not counted.
    [[nodiscard]] std::uint64_t Operations() const { return m_operations; }

private:
    template <typename Fill>
    void Send(Fill fill);

    FrameClient m_connection;
    std::uint64_t m_operations = 0;
};

}  // namespace support

#endif
