// SPDX-License-Identifier: Apache-2.0
// From the message on the wire to an operation. The one place where the width of numbers and the length
// of names that a peer sends are checked.

#ifndef MANAGER_SERVICE_OPERATION_MESSAGE_H
#define MANAGER_SERVICE_OPERATION_MESSAGE_H

#include <cstddef>
#include <string>
#include <variant>

#include "manager/service/operation.h"

namespace ipc::manager {
class ClientMessage;
}

namespace manager {

/// Bytes of a name at most, as in the YANG model.
inline constexpr std::size_t kMaxName = 64;

/// Whether the message carries one of the service's operations.
bool IsOperation(const ipc::manager::ClientMessage& message);

/// The operation of a message; a Refusal if IsOperation is false, a name is too long or a number out of
/// range.
std::variant<Operation, Refusal> ToOperation(const ipc::manager::ClientMessage& message);

}  // namespace manager

#endif
