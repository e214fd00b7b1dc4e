// SPDX-License-Identifier: Apache-2.0
// The callpoints' writes of one edit, by the entry whose creation they belong to. Used by the editor.

#ifndef CDB_DATASTORE_EDIT_WRITES_H
#define CDB_DATASTORE_EDIT_WRITES_H

#include <map>
#include <vector>

#include "cdb/datastore/datastore.h"
#include "cdb/datastore/tree.h"

namespace cdb {

class EditWrites {
public:
    struct Write {
        std::vector<Place> below;  // from the entry down to the leaf
        Value value;
    };

    EditWrites() = default;
    EditWrites(const SchemaTable& table, const std::vector<LeafWrite>& writes);

    /// The writes for this entry; empty if there are none.
    [[nodiscard]] const std::vector<Write>& For(const Place& entry) const;

private:
    std::map<Place, std::vector<Write>> m_writes;  // by the list and all keys from the root
};

}  // namespace cdb

#endif
