// SPDX-License-Identifier: Apache-2.0
// Converts between the database's values and keypaths and those of the client API.

#ifndef PLATFORM_EMBEDDED_CONFD_CONVERT_H
#define PLATFORM_EMBEDDED_CONFD_CONVERT_H

#include <confd_lib.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "cdb/model/path.h"
#include "cdb/model/schema_table.h"
#include "cdb/model/value.h"

namespace embedded {

/// The failure of one call of the client API.
class ClientError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// C_NOEXISTS: ends a keypath, and stands for a leaf that is not set.
confd_value_t Empty();

/// The value as the result of a read: a string's bytes are allocated, for confd_free_value. Throws
/// std::bad_alloc.
confd_value_t OwnedValue(const cdb::Value& value);
confd_value_t OwnedString(const std::string& text);

/// The value as an argument of a callback: a string's bytes are those of `value`, which must outlive it.
confd_value_t BorrowedValue(const cdb::Value& value);

/// Copies the value. Throws ClientError for a type that no leaf has.
cdb::Value FromConfd(const confd_value_t& value);

/// One element of a keypath, from the root on; `keys` null or empty for all but list entries.
struct KeypathStep {
    cdb::NodeId node = cdb::kNoNode;
    const std::vector<std::string>* keys = nullptr;
};

/// Fills in the keypath, whose keys refer to the steps' strings. Throws ClientError if it has more positions
/// or keys than a keypath holds.
void MakeKeypath(const cdb::SchemaTable& schema, const std::vector<KeypathStep>& steps,
                 confd_hkeypath_t& keypath);

std::vector<KeypathStep> StepsOf(const cdb::Path& path);

/// The keypath as text. Throws ClientError for a tag that no schema node has.
std::string KeypathText(const cdb::SchemaTable& schema, const confd_hkeypath_t& keypath);

}  // namespace embedded

#endif
