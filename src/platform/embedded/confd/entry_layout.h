// SPDX-License-Identifier: Apache-2.0
// How the values of one list entry or container are laid out in a value array, with what stands in
// for those that a row has not.

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

    /// How many of an entry's keys are its own.
    [[nodiscard]] std::size_t KeyCount() const { return m_keyCount; }

    /// The first `count` values, filled up with empty ones. `keys` are the entry's own.
    void Fill(std::span<const std::string> keys, const cdb::Row& row, confd_value_t* values,
              std::size_t count) const;

    /// One leaf's value; empty (C_NOEXISTS) where it has none.
    [[nodiscard]] confd_value_t ValueOf(cdb::NodeId leaf, std::span<const std::string> keys,
                                        const cdb::Row& row) const;

private:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    struct Slot {
        const cdb::SchemaNode* leaf = nullptr;
        std::size_t key = kNone;         // position among the entry's keys
        std::size_t substitute = kNone;  // the slot whose value stands in for a missing one
    };

    [[nodiscard]] confd_value_t Value(std::size_t slot, std::span<const std::string> keys,
                                      const cdb::Row& row) const;

    std::vector<Slot> m_slots;
    std::size_t m_keyCount = 0;
};

}  // namespace embedded

#endif
