// SPDX-License-Identifier: Apache-2.0
#include "manager/service/operation.h"

#include <arpa/inet.h>

#include <limits>
#include <optional>
#include <stdexcept>

#include <fmt/format.h>

#include "cdb/model/name.h"
#include "ipc/manager.pb.h"

namespace manager {
namespace {

using ipc::manager::ClientMessage;

/// Thrown and caught within this file only.
class NotAnOperation : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

const std::string& Name(const char* what, const std::string& name)
{
    if (name.size() > cdb::kMaxName)
        throw NotAnOperation(
            fmt::format("the name of the {} has {} bytes, more than {}", what, name.size(), cdb::kMaxName));
    return name;
}

std::uint16_t Short(const char* what, std::uint32_t value)
{
    if (value > std::numeric_limits<std::uint16_t>::max())
        throw NotAnOperation(fmt::format("{} {} is out of range", what, value));
    return static_cast<std::uint16_t>(value);
}

Direction ToDirection(std::int32_t value)
{
    if (value < static_cast<std::int32_t>(Direction::kEgress) ||
        value > static_cast<std::int32_t>(Direction::kBoth))
        throw NotAnOperation(fmt::format("direction {} is none of 1, 2 and 3", value));
    return static_cast<Direction>(value);
}

Operation From(const ipc::manager::AddCollector& message)
{
    return AddCollector{
        Name("collector", message.name()),
        {message.address(), Short("port", message.port()), Short("datagram size", message.datagram_size())}};
}

Operation From(const ipc::manager::UpdateInterface& message)
{
    return UpdateInterface{
        Name("interface", message.interface()),
        Name("collector", message.sample_collector()),
        Name("collector", message.counter_collector()),
        {message.rate(), ToDirection(message.direction()), Short("header size", message.max_header_size()),
         Short("polling interval", message.interval())}};
}

template <typename Result>
Operation From(Kind kind, const ipc::manager::Attachment& message)
{
    return Result{kind, Name("interface", message.interface()), Name("collector", message.collector())};
}

std::optional<Operation> Decoded(const ClientMessage& message)
{
    switch (message.body_case()) {
    case ClientMessage::kAddCollector:
        return From(message.add_collector());
    case ClientMessage::kDeleteCollector:
        return DeleteCollector{Name("collector", message.delete_collector().name())};
    case ClientMessage::kUpdateInterface:
        return From(message.update_interface());
    case ClientMessage::kAddSampleCollector:
        return From<Attach>(Kind::kFlow, message.add_sample_collector());
    case ClientMessage::kRemoveSampleCollector:
        return From<Detach>(Kind::kFlow, message.remove_sample_collector());
    case ClientMessage::kAddCounterCollector:
        return From<Attach>(Kind::kCounter, message.add_counter_collector());
    case ClientMessage::kRemoveCounterCollector:
        return From<Detach>(Kind::kCounter, message.remove_counter_collector());
    case ClientMessage::kUnsetInterface:
        return UnsetInterface{Name("interface", message.unset_interface().interface())};
    case ClientMessage::kSetAgentAddress:
        return SetAgentAddress{message.set_agent_address().address()};
    case ClientMessage::kHello:
    case ClientMessage::kLoaded:
    case ClientMessage::BODY_NOT_SET:
        break;
    }
    return std::nullopt;
}

}  // namespace

bool IsOperation(const ClientMessage& message)
{
    return !message.has_hello() && !message.has_loaded() &&
           message.body_case() != ClientMessage::BODY_NOT_SET;
}

base::expected<Operation, std::string> ToOperation(const ClientMessage& message)
{
    try {
        if (auto operation = Decoded(message)) return *std::move(operation);
        return base::Unexpected("the message carries no operation");
    } catch (const NotAnOperation& reason) {
        return base::Unexpected(reason.what());
    }
}

std::string AddressText(std::uint32_t address)
{
    char text[INET_ADDRSTRLEN] = {};
    in_addr value{};
    value.s_addr = address;
    ::inet_ntop(AF_INET, &value, text, sizeof text);
    return text;
}

}  // namespace manager
