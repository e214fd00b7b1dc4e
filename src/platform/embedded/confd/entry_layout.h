// SPDX-License-Identifier: Apache-2.0
// The positions of one list entry's or container's values in a value array, and the defaults for those that a
// row lacks.

#ifndef PLATFORM_EMBEDDED_CONFD_ENTRY_LAYOUT_H
#define PLATFORM_EMBEDDED_CONFD_ENTRY_LAYOUT_H

#include <confd_lib.h>

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "cdb/model/row.h"
#include "cdb/model/schema_table.h"

namespace embedded {

class EntryLayout {
public:
    /// `schema` must outlive it.
    EntryLayout(const cdb::SchemaTable& schema, cdb::NodeId entry);

    [[nodiscard]] std::size_t Size() const { return m_slots.size(); }

    /// The number of keys of the entry itself, without those of the lists above.
    [[nodiscard]] std::size_t KeyCount() const { return m_keyCount; }

    /// Writes `count` values: those of the entry, then empty ones. `keys` are the entry's own. The caller
    /// frees the values.
    void Fill(std::span<const std::string> keys, const cdb::Row& row, confd_value_t* values,
              std::size_t count) const;

    /// One leaf's value, which the caller frees; empty (C_NOEXISTS) if it has none.
    [[nodiscard]] confd_value_t ValueOf(cdb::NodeId leaf, std::span<const std::string> keys,
                                        const cdb::Row& row) const;

private:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    struct Slot {
        const cdb::SchemaNode* leaf = nullptr;
        std::size_t key = kNone;         // position among the entry's keys
        std::size_t substitute = kNone;  // the slot whose value replaces a missing one
    };

    [[nodiscard]] confd_value_t Value(std::size_t slot, std::span<const std::string> keys,
                                      const cdb::Row& row) const;

    std::vector<Slot> m_slots;
    std::size_t m_keyCount = 0;
};

}  // namespace embedded

#endif
