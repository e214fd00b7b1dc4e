// SPDX-License-Identifier: Apache-2.0
// Converts values to and from messages, for the processes' connections and the store.

#ifndef CDB_MODEL_VALUE_MESSAGE_H
#define CDB_MODEL_VALUE_MESSAGE_H

#include <optional>

#include "cdb/model/value.h"

namespace ipc::cdb {
class Value;
}

namespace cdb {

/// std::monostate becomes a message without a kind.
void ToMessage(const Value& value, ipc::cdb::Value& message);

/// Nullopt if a number or prefix length is out of its type's range.
std::optional<Value> FromMessage(const ipc::cdb::Value& message);

}  // namespace cdb

#endif
