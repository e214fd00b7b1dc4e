// SPDX-License-Identifier: Apache-2.0
// The sFlow service's client, played by a test (see the header).

#include "support/service_client.h"
#include "support/proto_text.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <stdexcept>

#include "ipc/frame.h"
#include "ipc/manager.pb.h"

namespace support {
namespace {

std::uint32_t ToAddress(const std::string& text)
{
    in_addr address{};
    if (::inet_pton(AF_INET, text.c_str(), &address) != 1) throw std::runtime_error("no address: " + text);
    return address.s_addr;
}

}  // namespace

ServiceClient::ServiceClient(const std::filesystem::path& socket) : m_connection(socket)
{
    ipc::manager::ClientMessage hello;
    hello.mutable_hello()->set_protocol(ipc::kProtocolVersion);
    hello.mutable_hello()->set_process("test");
    hello.mutable_hello()->set_pid(::getpid());
    m_connection.Send(hello);
    ipc::manager::ServerMessage answer;
    if (!m_connection.Receive(answer) || !answer.has_opened())
        throw std::runtime_error("sflow-mgr gives no session: " + support::TextOf(answer));
}

template <typename Fill>
void ServiceClient::Send(Fill fill)
{
    ipc::manager::ClientMessage message;
    fill(message);
    ++m_operations;
    m_connection.Send(message);
}

void ServiceClient::SetAgentAddress(const std::string& address)
{
    Send([&](auto& message) { message.mutable_set_agent_address()->set_address(ToAddress(address)); });
}

void ServiceClient::AddCollector(const std::string& name, const std::string& address, std::uint16_t port,
                                 std::uint16_t datagramSize)
{
    Send([&](auto& message) {
        auto& collector = *message.mutable_add_collector();
        collector.set_name(name);
        collector.set_address(ToAddress(address));
        collector.set_port(port);
        collector.set_datagram_size(datagramSize);
    });
}

void ServiceClient::DeleteCollector(const std::string& name)
{
    Send([&](auto& message) { message.mutable_delete_collector()->set_name(name); });
}

void ServiceClient::UpdateInterface(const Interface& interface)
{
    Send([&](auto& message) {
        auto& update = *message.mutable_update_interface();
        update.set_interface(interface.name);
        update.set_sample_collector(interface.flowCollector);
        update.set_counter_collector(interface.counterCollector);
        update.set_rate(interface.rate);
        update.set_direction(interface.direction);
        update.set_max_header_size(interface.headerSize);
        update.set_interval(interface.interval);
    });
}

namespace {

void Fill(ipc::manager::Attachment& attachment, const std::string& interface, const std::string& collector)
{
    attachment.set_interface(interface);
    attachment.set_collector(collector);
}

}  // namespace

void ServiceClient::AddSampleCollector(const std::string& interface, const std::string& collector)
{
    Send([&](auto& message) { Fill(*message.mutable_add_sample_collector(), interface, collector); });
}

void ServiceClient::RemoveSampleCollector(const std::string& interface, const std::string& collector)
{
    Send([&](auto& message) { Fill(*message.mutable_remove_sample_collector(), interface, collector); });
}

void ServiceClient::AddCounterCollector(const std::string& interface, const std::string& collector)
{
    Send([&](auto& message) { Fill(*message.mutable_add_counter_collector(), interface, collector); });
}

void ServiceClient::RemoveCounterCollector(const std::string& interface, const std::string& collector)
{
    Send([&](auto& message) { Fill(*message.mutable_remove_counter_collector(), interface, collector); });
}

void ServiceClient::UnsetInterface(const std::string& interface)
{
    Send([&](auto& message) { message.mutable_unset_interface()->set_interface(interface); });
}

void ServiceClient::Loaded()
{
    ipc::manager::ClientMessage message;
    message.mutable_loaded();
    m_connection.Send(message);
}

}  // namespace support
