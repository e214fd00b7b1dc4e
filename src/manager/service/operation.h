// SPDX-License-Identifier: Apache-2.0
// What a session sends the manager, as plain records: the operations of the sFlow service, made of the
// messages on the wire. The one place where the width of numbers and the length of names that a peer sends
// are checked. Used by the service, the journal and the state.

#ifndef MANAGER_SERVICE_OPERATION_H
#define MANAGER_SERVICE_OPERATION_H

#include <cstdint>
#include <string>
#include <variant>

#include "base/expected.h"

namespace ipc::manager {
class ClientMessage;
}

namespace manager {

/// What a collector is attached to an interface for.
enum class Kind { kFlow, kCounter };
inline constexpr int kKinds = 2;

/// Which packets are sampled. The numbers are the service's.
enum class Direction : std::int32_t { kEgress = 1, kIngress = 2, kBoth = 3 };

struct CollectorSettings {
    std::uint32_t address = 0;  // network byte order in memory, as in_addr
    std::uint16_t port = 0;
    std::uint16_t datagramSize = 0;  // bytes of UDP payload
    friend bool operator==(const CollectorSettings&, const CollectorSettings&) = default;
};

struct InterfaceSettings {
    std::uint32_t rate = 0;  // one packet of so many is sampled, on average
    Direction direction = Direction::kIngress;
    std::uint16_t maxHeaderSize = 0;  // bytes
    std::uint16_t interval = 0;       // seconds between two counter exports; 0: none
    friend bool operator==(const InterfaceSettings&, const InterfaceSettings&) = default;
};

struct AddCollector {
    std::string name;
    CollectorSettings settings;
};

struct DeleteCollector {
    std::string name;
};

struct UpdateInterface {
    std::string interface;
    std::string flowCollector;     // empty: none
    std::string counterCollector;  // empty: none
    InterfaceSettings settings;
};

struct Attach {
    Kind kind = Kind::kFlow;
    std::string interface;
    std::string collector;
};

struct Detach {
    Kind kind = Kind::kFlow;
    std::string interface;
    std::string collector;
};

struct UnsetInterface {
    std::string interface;
};

struct SetAgentAddress {
    std::uint32_t address = 0;  // network byte order in memory, as in_addr
};

using Operation = std::variant<AddCollector, DeleteCollector, UpdateInterface, Attach, Detach, UnsetInterface,
                               SetAgentAddress>;

/// Whether the message carries one of the service's operations.
bool IsOperation(const ipc::manager::ClientMessage& message);

/// The operation of a message; the reason if IsOperation is false, a name is too long or a number out of
/// range.
base::expected<Operation, std::string> ToOperation(const ipc::manager::ClientMessage& message);

/// The address as dotted-decimal text; `address` in network byte order in memory.
std::string AddressText(std::uint32_t address);

}  // namespace manager

#endif
