// SPDX-License-Identifier: Apache-2.0
// The operations of the sFlow service as messages.

#include "ipc/manager.pb.h"
#include "platform/embedded/sflow/service_client.h"

namespace embedded {

using ipc::manager::ClientMessage;

namespace {

void Set(ipc::manager::Attachment& attachment, const std::string& interface, const std::string& collector)
{
    attachment.set_interface(interface);
    attachment.set_collector(collector);
}

}  // namespace

void ServiceClient::AddCollector(const std::string& name, const nettypes::IPv4Addr& address,
                                 std::uint16_t port, std::uint16_t datagramSize)
{
    ClientMessage message;
    auto& collector = *message.mutable_add_collector();
    collector.set_name(name);
    collector.set_address(address.word());
    collector.set_port(port);
    collector.set_datagram_size(datagramSize);
    Send(message);
}

void ServiceClient::DeleteCollector(const std::string& name)
{
    ClientMessage message;
    message.mutable_delete_collector()->set_name(name);
    Send(message);
}

void ServiceClient::UpdateInterface(const std::string& interface, const std::string& sampleCollector,
                                    const std::string& counterCollector, std::uint32_t rate, int direction,
                                    std::uint16_t maxHeaderSize, std::uint16_t interval)
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

void ServiceClient::AddSampleCollector(const std::string& interface, const std::string& collector)
{
    ClientMessage message;
    Set(*message.mutable_add_sample_collector(), interface, collector);
    Send(message);
}

void ServiceClient::RemoveSampleCollector(const std::string& interface, const std::string& collector)
{
    ClientMessage message;
    Set(*message.mutable_remove_sample_collector(), interface, collector);
    Send(message);
}

void ServiceClient::AddCounterCollector(const std::string& interface, const std::string& collector)
{
    ClientMessage message;
    Set(*message.mutable_add_counter_collector(), interface, collector);
    Send(message);
}

void ServiceClient::RemoveCounterCollector(const std::string& interface, const std::string& collector)
{
    ClientMessage message;
    Set(*message.mutable_remove_counter_collector(), interface, collector);
    Send(message);
}

void ServiceClient::UnsetInterface(const std::string& interface)
{
    ClientMessage message;
    message.mutable_unset_interface()->set_interface(interface);
    Send(message);
}

void ServiceClient::SetAgentAddress(const nettypes::IPv4Addr& address)
{
    ClientMessage message;
    message.mutable_set_agent_address()->set_address(address.word());
    Send(message);
}

}  // namespace embedded
