// SPDX-License-Identifier: Apache-2.0
// Values as they travel in messages and stand in the store. Used by the store, the change sets and
// whoever sends or receives a single value.

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

/// Nullopt for a number or prefix length that its type can't hold.
std::optional<Value> FromMessage(const ipc::cdb::Value& message);

}  // namespace cdb

#endif
