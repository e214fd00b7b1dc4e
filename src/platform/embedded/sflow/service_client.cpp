// SPDX-License-Identifier: Apache-2.0
// The embedded platform's sFlow service client: a session with sflow-mgr while the gate is open, its found
// and lost notices, and the operations as messages.

#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <sflow/i_service.h>

#include "ipc/frame.h"
#include "ipc/link.h"
#include "ipc/manager.pb.h"
#include "log/log.h"
#include "platform/embedded/runtime.h"

namespace embedded {
namespace {

using ipc::manager::ClientMessage;
using ipc::manager::ServerMessage;

constexpr std::chrono::milliseconds kCheckInterval{1000};

/// A manager that takes no bytes for this time is lost.
constexpr std::chrono::milliseconds kStuckLimit{10'000};

void Tell(const sflow::IService::Notice& notice)
{
    if (notice.first) notice.first(notice.second);
}

class ServiceClient final : public sflow::IService, private Gate::Listener {
public:
    /// `runtime` must outlive it.
    ServiceClient(Runtime& runtime, Notice found, Notice lost)
        : m_runtime(runtime),
          m_found(std::move(found)),
          m_lost(std::move(lost)),
          m_link(runtime.loop, *runtime.timers, runtime.managerSocket,
                 {[this] { Greet(); }, [this](std::string_view frame) { OnFrame(frame); },
                  [this](std::string_view reason) { EndSession(reason); }})
    {
        m_runtime.gate.Add(*this);
        if (m_runtime.gate.IsOpen()) m_link.Start();
    }

    ~ServiceClient() override { m_runtime.gate.Remove(*this); }

    bool IsConnected() const override { return m_open; }

    void AddCollector(const std::string& name, const nettypes::IPv4Addr& address, std::uint16_t port,
                      std::uint16_t datagramSize) override
    {
        ClientMessage message;
        auto& collector = *message.mutable_add_collector();
        collector.set_name(name);
        collector.set_address(address.word());
        collector.set_port(port);
        collector.set_datagram_size(datagramSize);
        Send(message);
    }

    void DeleteCollector(const std::string& name) override
    {
        ClientMessage message;
        message.mutable_delete_collector()->set_name(name);
        Send(message);
    }

    void UpdateInterface(const std::string& interface, const std::string& sampleCollector,
                         const std::string& counterCollector, std::uint32_t rate, int direction,
                         std::uint16_t maxHeaderSize, std::uint16_t interval) override
    {
        ClientMessage message;
        auto& update = *message.mutable_update_interface();
        update.set_interface(interface);
        update.set_sample_collector(sampleCollector);
        update.set_counter_collector(counterCollector);
        update.set_rate(rate);
        update.set_direction(direction);
        update.set_max_header_size(maxHeaderSize);
        update.set_interval(interval);
        Send(message);
    }

    void AddSampleCollector(const std::string& interface, const std::string& collector) override
    {
        Attach(&ClientMessage::mutable_add_sample_collector, interface, collector);
    }

    void RemoveSampleCollector(const std::string& interface, const std::string& collector) override
    {
        Attach(&ClientMessage::mutable_remove_sample_collector, interface, collector);
    }

    void AddCounterCollector(const std::string& interface, const std::string& collector) override
    {
        Attach(&ClientMessage::mutable_add_counter_collector, interface, collector);
    }

    void RemoveCounterCollector(const std::string& interface, const std::string& collector) override
    {
        Attach(&ClientMessage::mutable_remove_counter_collector, interface, collector);
    }

    void UnsetInterface(const std::string& interface) override
    {
        ClientMessage message;
        message.mutable_unset_interface()->set_interface(interface);
        Send(message);
    }

    void SetAgentAddress(const nettypes::IPv4Addr& address) override
    {
        ClientMessage message;
        message.mutable_set_agent_address()->set_address(address.word());
        Send(message);
    }

private:
    void GateOpened() override { m_link.Start(); }

    void GateClosed(bool tell) override
    {
        m_link.Stop();
        if (tell) return EndSession("the connection to cdbd is gone");
        m_check.reset();
        m_open = false;
    }

    void Greet()
    {
        ClientMessage message;
        auto& hello = *message.mutable_hello();
        hello.set_protocol(ipc::kProtocolVersion);
        hello.set_process(m_runtime.process);
        hello.set_pid(::getpid());
        m_link.Send(message);
    }

    void OnFrame(std::string_view frame)
    {
        ServerMessage message;
        if (!message.ParseFromArray(frame.data(), static_cast<int>(frame.size()))) {
            slog::Error("giving up the session with sflow-mgr: it sent a message that can't be read");
            m_link.Retry();
            return EndSession("the manager sent a message that can't be read");
        }
        switch (message.body_case()) {
        case ServerMessage::kOpened:
            return OnOpened();
        case ServerMessage::kRefused:
            return OnRefused(message.refused());
        case ServerMessage::kResync:
            m_link.Renew();
            return EndSession("the manager asks for everything again");
        case ServerMessage::BODY_NOT_SET:
            return;  // from a newer manager; needs no answer
        }
    }

    void OnOpened()
    {
        if (m_open) return;
        m_link.Accepted();
        m_lastRefusal.clear();
        m_open = true;
        slog::Notice("session with sflow-mgr opened");
        CheckProgress();
        Tell(m_found);
        ClientMessage loaded;
        loaded.mutable_loaded();
        Send(loaded);
    }

    void OnRefused(const ipc::manager::Refused& refused)
    {
        std::string text = refused.reason();
        if (refused.holder_pid() != 0)
            text += " (held by process " + std::to_string(refused.holder_pid()) + ")";
        if (std::exchange(m_lastRefusal, text) != text)
            slog::Notice("sflow-mgr refuses us: {}; trying again", text);
        m_link.Retry();
        EndSession("refused");
    }

    void CheckProgress()
    {
        if (m_link.Stuck(kStuckLimit)) {
            m_link.Retry();
            return EndSession("the manager takes nothing");
        }
        m_check = m_runtime.timers->After(kCheckInterval, [this] { CheckProgress(); });
    }

    void EndSession(std::string_view reason)
    {
        m_check.reset();
        if (!std::exchange(m_open, false)) return;
        slog::Notice("session with sflow-mgr lost: {}", reason);
        Tell(m_lost);
    }

    /// Dropped outside a session: the next session sends everything anew.
    void Send(const ClientMessage& message)
    {
        if (m_open) m_link.Send(message);
    }

    void Attach(ipc::manager::Attachment* (ClientMessage::*operation)(), const std::string& interface,
                const std::string& collector)
    {
        ClientMessage message;
        ipc::manager::Attachment& attachment = *(message.*operation)();
        attachment.set_interface(interface);
        attachment.set_collector(collector);
        Send(message);
    }

    Runtime& m_runtime;
    const Notice m_found;
    const Notice m_lost;
    bool m_open = false;
    std::string m_lastRefusal;
    std::shared_ptr<void> m_check;  // the timer of the next progress check
    ipc::Link m_link;               // last: destroyed first, so that it calls nothing destroyed
};

}  // namespace
}  // namespace embedded

namespace sflow {

std::unique_ptr<IService> IService::Build(Notice found, Notice lost)
{
    return std::make_unique<embedded::ServiceClient>(embedded::TheRuntime(), std::move(found),
                                                     std::move(lost));
}

}  // namespace sflow
