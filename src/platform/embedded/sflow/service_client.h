// SPDX-License-Identifier: Apache-2.0
// The embedded platform's sFlow service client: a session with sflow-mgr while the gate is open, its found
// and lost notices, and the operations as messages.

#ifndef PLATFORM_EMBEDDED_SFLOW_SERVICE_CLIENT_H
#define PLATFORM_EMBEDDED_SFLOW_SERVICE_CLIENT_H

#include <sflow/i_service.h>

#include <memory>
#include <string>
#include <string_view>

#include "ipc/link.h"
#include "platform/embedded/runtime.h"

namespace ipc::manager {
class ClientMessage;
class Refused;
}  // namespace ipc::manager

namespace embedded {

class ServiceClient final : public sflow::IService, private Gate::Listener {
public:
    /// `runtime` must outlive it.
    ServiceClient(Runtime& runtime, Notice found, Notice lost);
    ~ServiceClient() override;

    bool IsConnected() const override { return m_open; }
    void AddCollector(const std::string& name, const nettypes::IPv4Addr& address, std::uint16_t port,
                      std::uint16_t datagramSize) override;
    void DeleteCollector(const std::string& name) override;
    void UpdateInterface(const std::string& interface, const std::string& sampleCollector,
                         const std::string& counterCollector, std::uint32_t rate, int direction,
                         std::uint16_t maxHeaderSize, std::uint16_t interval) override;
    void AddSampleCollector(const std::string& interface, const std::string& collector) override;
    void RemoveSampleCollector(const std::string& interface, const std::string& collector) override;
    void AddCounterCollector(const std::string& interface, const std::string& collector) override;
    void RemoveCounterCollector(const std::string& interface, const std::string& collector) override;
    void UnsetInterface(const std::string& interface) override;
    void SetAgentAddress(const nettypes::IPv4Addr& address) override;

private:
    void GateOpened() override;
    void GateClosed(bool tell) override;

    void Greet();
    void OnFrame(std::string_view frame);
    void OnOpened();
    void OnRefused(const ipc::manager::Refused& refused);
    void OnClosed(std::string_view reason);
    void CheckProgress();
    void EndSession(std::string_view reason);
    void Send(const ipc::manager::ClientMessage& message);

    Runtime& m_runtime;
    const Notice m_found;
    const Notice m_lost;
    bool m_open = false;
    std::string m_lastRefusal;
    std::shared_ptr<void> m_check;  // the timer of the next progress check
    ipc::Link m_link;               // last: destroyed first, so that it calls nothing destroyed
};

}  // namespace embedded

#endif
