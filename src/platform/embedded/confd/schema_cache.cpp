// SPDX-License-Identifier: Apache-2.0
#include "platform/embedded/confd/schema_cache.h"

#include <algorithm>

#include "cdb/model/path.h"
#include "platform/embedded/confd/convert.h"

namespace embedded {
namespace {

const cdb::Value* Explicit(const cdb::Row& row, const std::string& name)
{
    for (const auto& [leaf, value] : row.leaves)
        if (leaf == name) return &value;
    return nullptr;
}

/// More shapes than the schema has; further ones are parsed each time.
constexpr std::size_t kMaxShapes = 64;

bool HasOneKeyPerList(const cdb::SchemaTable& schema, const cdb::Path& path)
{
    return std::all_of(path.steps.begin(), path.steps.end(), [&](const cdb::Step& step) {
        return !step.index && (step.keys.empty() || schema[step.node].keys.size() == 1);
    });
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

/// Cuts the text into its shape and its keys. Returns false if the text is of a form that shapes do not
/// cover.
bool PathReader::Split(std::string_view text)
{
    m_shape.clear();
    std::size_t keys = 0;
    while (!text.empty()) {
        const std::size_t mark = text.find_first_of("{[");
        if (mark == std::string_view::npos) {
            m_shape.append(text);
            break;
        }
        const std::size_t end = text.find('}', mark);
        if (text[mark] == '[' || end == std::string_view::npos || end == mark + 1) return false;
        m_shape.append(text.substr(0, mark + 1));
        if (keys == m_path.keys.size()) m_path.keys.emplace_back();
        m_path.keys[keys++].assign(text.substr(mark + 1, end - mark - 1));
        text.remove_prefix(end);
    }
    m_path.keys.resize(keys);
    return true;
}

const ReadPath& PathReader::Read(std::string_view text, const Resolve& resolve)
{
    if (!Split(text)) {
        ReadAnew(text, resolve);
        return m_path;
    }
    const auto known = std::find_if(m_shapes.begin(), m_shapes.end(),
                                    [this](const Shape& shape) { return shape.text == m_shape; });
    if (known == m_shapes.end()) {
        ReadAnew(text, resolve);
        return m_path;
    }
    m_path.node = known->node;
    m_path.isEntry = known->isEntry;
    if (known != m_shapes.begin()) std::iter_swap(m_shapes.begin(), known);
    return m_path;
}

void PathReader::ReadAnew(std::string_view text, const Resolve& resolve)
{
    const auto path = cdb::ParsePath(m_schema, text);
    if (!path) throw ClientError(path.error());
    m_path = {path->Node(), {}, false};
    for (const auto& step : path->steps) {
        const std::vector<std::string> keys =
            step.index ? resolve(step.node, m_path.keys, *step.index) : step.keys;
        m_path.keys.insert(m_path.keys.end(), keys.begin(), keys.end());
        m_path.isEntry = !keys.empty();
    }
    if (m_shapes.size() < kMaxShapes && HasOneKeyPerList(m_schema, *path) && Split(text))
        m_shapes.push_back({m_shape, m_path.node, m_path.isEntry});
}

const EntryLayout& SchemaCache::LayoutOf(cdb::NodeId entry)
{
    auto found = m_layouts.find(entry);
    if (found == m_layouts.end()) found = m_layouts.try_emplace(entry, schema, entry).first;
    return found->second;
}

}  // namespace embedded
