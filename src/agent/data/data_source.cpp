// SPDX-License-Identifier: Apache-2.0
#include "agent/data/data_source.h"

#include <array>
#include <bit>
#include <charconv>
#include <functional>

namespace agent {
namespace {

/// The longest is an address with its prefix length.
using Buffer = std::array<char, 24>;

/// A value's canonical text: the value's own, or written into the buffer.
class ToText {
public:
    explicit ToText(Buffer& buffer) : m_buffer(buffer) {}

    std::string_view operator()(std::monostate) { return {}; }
    std::string_view operator()(const std::string& text) { return text; }
    std::string_view operator()(bool value) { return value ? "true" : "false"; }
    std::string_view operator()(std::uint16_t value) { return Number(value).Text(); }
    std::string_view operator()(std::uint32_t value) { return Number(value).Text(); }
    std::string_view operator()(cdb::Ipv4 value) { return Address(value.word).Text(); }
    std::string_view operator()(cdb::Ipv4Plen value)
    {
        return Address(value.word).Sign('/').Number(value.length).Text();
    }

private:
    ToText& Number(std::uint32_t number)
    {
        m_end = std::to_chars(m_end, m_buffer.data() + m_buffer.size(), number).ptr;
        return *this;
    }
    ToText& Sign(char sign)
    {
        *m_end++ = sign;
        return *this;
    }
    ToText& Address(std::uint32_t word)
    {
        const auto bytes = std::bit_cast<std::array<std::uint8_t, sizeof word>>(word);
        Number(bytes[0]);
        for (std::size_t i = 1; i < bytes.size(); ++i) Sign('.').Number(bytes[i]);
        return *this;
    }
    [[nodiscard]] std::string_view Text() const { return {m_buffer.data(), m_end}; }

    Buffer& m_buffer;
    char* m_end = m_buffer.data();
};

}  // namespace

/// What a handle points to, while the node is visited.
struct RowSource::Place {
    const cdb::Row* row = nullptr;  // null: nothing is set
    std::size_t keys = 0;           // how many of m_keys lead here
    std::span<const std::string_view> ownKeys;
};

RowSource::RowSource(const DataSchema& schema, cdb::RowView& rows, Missing missing)
    : m_schema(schema),
      m_rows(rows),
      m_missing(missing),
      m_keys(schema.MostKeys()),
      m_kept(schema.Depth() + 1)
{
}

std::size_t RowSource::KeysOf(Handle at) { return at == nullptr ? 0 : static_cast<const Place*>(at)->keys; }

const DataNode* RowSource::Configured(const lysc_node* schema) const
{
    const DataNode* node = m_schema.Find(schema);
    return node != nullptr && node->id != cdb::kNoNode ? node : nullptr;
}

void RowSource::Values(Handle at, const lysc_node* leaf, const ValueVisit& visit)
{
    const DataNode* node = Configured(leaf);
    if (at == nullptr || node == nullptr) return;  // there are no top-level leaves
    const auto& place = *static_cast<const Place*>(at);
    if (node->isKey) {
        if (node->index < place.ownKeys.size()) visit(place.ownKeys[node->index], false);
        return;
    }
    if (place.row != nullptr) {
        for (const auto& [name, value] : place.row->leaves) {
            if (name != node->name) continue;
            Buffer buffer;
            return visit(std::visit(ToText(buffer), value), false);
        }
    }
    if (node->standIn != nullptr && m_missing == Missing::kInUse)
        return Values(at, node->standIn->schema,
                      [&visit](std::string_view text, bool) { visit(text, true); });
    for (const std::string& text : node->defaults) visit(text, true);
}

const cdb::Row* RowSource::KeepRow(const DataNode& node, std::size_t keys)
{
    const cdb::Row* row = m_rows.Get(node.id, std::span(m_keys.data(), keys));
    if (row == nullptr) return nullptr;
    m_kept[node.depth] = *row;
    return &m_kept[node.depth];
}

void RowSource::Container(Handle at, const lysc_node* container, const NodeVisit& visit)
{
    const DataNode* node = Configured(container);
    if (node == nullptr) return;
    Place place{nullptr, KeysOf(at), {}};
    const bool isPresence = node->kind == DataKind::kPresenceContainer;
    if (node->hasLeaves || isPresence) place.row = KeepRow(*node, place.keys);
    if (isPresence && place.row == nullptr) return;
    visit(&place);
}

void RowSource::Entries(Handle at, const lysc_node* list, const NodeVisit& visit)
{
    const DataNode* node = Configured(list);
    if (node == nullptr) return;
    const std::size_t above = KeysOf(at);
    const auto entry = [&](std::span<const std::string_view> ownKeys, const cdb::Row& row) {
        if (ownKeys.size() != node->keyCount) return true;  // of another schema
        if (node->hasInner)
            for (std::size_t i = 0; i < ownKeys.size(); ++i) m_keys[above + i] = ownKeys[i];
        const Place place{&row, above + ownKeys.size(), ownKeys};
        return visit(&place);
    };
    m_rows.ForEach(node->id, std::span(m_keys.data(), above), std::cref(entry));
}

void RowSource::Entry(Handle at, const lysc_node* list, std::span<const std::string_view> keys,
                      const NodeVisit& visit)
{
    const DataNode* node = Configured(list);
    if (node == nullptr || keys.size() != node->keyCount) return;
    const std::size_t above = KeysOf(at);
    for (std::size_t i = 0; i < keys.size(); ++i) m_keys[above + i] = keys[i];
    const Place place{KeepRow(*node, above + keys.size()), above + keys.size(), keys};
    if (place.row != nullptr) visit(&place);
}

}  // namespace agent
