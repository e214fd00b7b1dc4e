// SPDX-License-Identifier: Apache-2.0
// What an edit is asked for with, and what passes between it and the callpoints.

#ifndef CDB_DATASTORE_EDIT_RECORDS_H
#define CDB_DATASTORE_EDIT_RECORDS_H

#include <cstdint>
#include <string>

#include "cdb/model/path.h"
#include "cdb/model/value.h"

namespace cdb {

/// The default-operation of an edit (RFC 6241, section 7.2).
enum class DefaultOperation : std::uint8_t { kMerge, kReplace, kNone };

/// The test-option of an edit (RFC 6241, section 7.2).
enum class TestOption : std::uint8_t { kSet, kTestThenSet, kTestOnly };

/// An entry that an edit will create in the candidate, and the callpoint to ask about it.
struct NewEntry {
    Path path;
    std::string callpoint;
    friend bool operator==(const NewEntry&, const NewEntry&) = default;
};

/// A leaf that a callpoint sets in the transaction of the edit.
struct LeafWrite {
    Path path;
    Value value;
};

}  // namespace cdb

#endif
