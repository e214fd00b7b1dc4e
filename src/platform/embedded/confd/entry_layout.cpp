// SPDX-License-Identifier: Apache-2.0
// Values of one entry in schema order, with defaults for missing ones.

#include "platform/embedded/confd/entry_layout.h"

#include <algorithm>

#include "platform/embedded/confd/convert.h"

namespace embedded {
namespace {

const cdb::Value* Explicit(const cdb::Row& row, const std::string& name)
{
    for (const auto& [leaf, value] : row.leaves)
        if (leaf == name) return &value;
    return nullptr;
}

}  // namespace

EntryLayout::EntryLayout(const cdb::SchemaTable& schema, cdb::NodeId entry)
    : m_keyCount(schema[entry].keys.size())
{
    const auto leaves = schema.LeavesOf(entry);
    const auto& keys = schema[entry].keys;
    for (const cdb::NodeId leaf : leaves) {
        Slot slot{&schema[leaf], kNone, kNone};
        if (const auto key = std::find(keys.begin(), keys.end(), leaf); key != keys.end())
            slot.key = static_cast<std::size_t>(key - keys.begin());
        const auto substitute = std::find(leaves.begin(), leaves.end(), schema[leaf].defaultRef);
        if (substitute != leaves.end())
            slot.substitute = static_cast<std::size_t>(substitute - leaves.begin());
        m_slots.push_back(slot);
    }
}

void EntryLayout::Fill(std::span<const std::string> keys, const cdb::Row& row, confd_value_t* values,
                       std::size_t count) const
{
    for (std::size_t i = 0; i < count; ++i) values[i] = i < m_slots.size() ? Value(i, keys, row) : Empty();
}

confd_value_t EntryLayout::ValueOf(cdb::NodeId leaf, std::span<const std::string> keys,
                                   const cdb::Row& row) const
{
    for (std::size_t i = 0; i < m_slots.size(); ++i)
        if (m_slots[i].leaf->id == leaf) return Value(i, keys, row);
    return Empty();
}

confd_value_t EntryLayout::Value(std::size_t slot, std::span<const std::string> keys,
                                 const cdb::Row& row) const
{
    // Bounded: a chain of substitutes is no longer than the entry has leaves, and a cycle ends too.
    for (std::size_t step = 0; step < m_slots.size() && slot != kNone; ++step) {
        const Slot& at = m_slots[slot];
        if (at.key < keys.size()) return OwnedString(keys[at.key]);
        if (const cdb::Value* value = Explicit(row, at.leaf->name)) return OwnedValue(*value);
        if (at.substitute == kNone) return OwnedValue(at.leaf->defaultValue);
        slot = at.substitute;
    }
    return Empty();
}

}  // namespace embedded
