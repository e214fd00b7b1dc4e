// SPDX-License-Identifier: Apache-2.0
// From the message on the wire to an operation. The one place where the width of numbers and the length
// of names that a peer sends are checked.

#ifndef MANAGER_SERVICE_OPERATION_MESSAGE_H
#define MANAGER_SERVICE_OPERATION_MESSAGE_H

#include <string>

#include "base/expected.h"
#include "manager/service/operation.h"

namespace ipc::manager {
class ClientMessage;
}

namespace manager {

/// Whether the message carries one of the service's operations.
bool IsOperation(const ipc::manager::ClientMessage& message);

/// The operation of a message; the reason if IsOperation is false, a name is too long or a number out of
/// range.
base::expected<Operation, std::string> ToOperation(const ipc::manager::ClientMessage& message);

}  // namespace manager

#endif
