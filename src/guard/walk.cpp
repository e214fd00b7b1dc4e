// SPDX-License-Identifier: Apache-2.0
// The walk itself. walk_errors.cpp makes the paths and descriptions for its refusals.

#include "guard/walk.h"

#include <algorithm>
#include <array>

#include "base/text.h"
#include "netconf/names.h"

namespace guard {
namespace {

using cdb::ErrorTag;

constexpr std::size_t kWordBits = 64;
/// A message shows at most this many bytes of a wrong value.
constexpr std::size_t kShownValue = 511;
/// More than one: an edit may delete an entry and create it anew. Bounded: libyang's time grows with the
/// square of an entry's occurrences.
constexpr std::uint8_t kMaxOfOneEntry = 8;
constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kXmlNamespace = "http://www.w3.org/XML/1998/namespace";
constexpr std::array<std::string_view, 5> kOperations{"merge", "replace", "create", "delete", "remove"};

bool IsLeaf(const Node& node) { return node.kind == NodeKind::kLeaf || node.kind == NodeKind::kLeafList; }

}  // namespace

Walk::Walk(const SchemaIndex& index, const Node& top, std::size_t maxText)
    : m_index(index), m_maxText(maxText), m_frames(1)
{
    m_frames[0].node = &top;
    m_frames[0].seen.assign(top.inOrder.size() / kWordBits + 1, 0);
    if (top.kind == NodeKind::kRoot) m_dataDepth = 0;
}

const Node& Walk::ParentOf() const
{
    const Node& here = Here();
    return here.kind == NodeKind::kAny ? m_index.Data() : here;
}

const Node* Walk::Find(std::string_view ns, std::string_view name)
{
    if (IsLeaf(Here())) {
        Refuse(ErrorTag::kUnknownElement, Path(),
               Described(m_depth) + " holds the element \"" + std::string(name) + "\"; give it a value only",
               {{"bad-element", std::string(name)}});
        return nullptr;
    }
    const Node* child = ParentOf().Child(ns, name);
    if (child == nullptr) {
        RefuseUnknown(ns, name);
        return nullptr;
    }
    if (child->isState && InData()) {
        Refuse(ErrorTag::kInvalidValue, PathOf(*child),
               Described(*child) + " is state and can't be configured; leave it out",
               {{"bad-element", std::string(name)}});
        return nullptr;
    }
    return child;
}

bool Walk::Mention(const Node& child)
{
    std::uint64_t& word = m_frames[m_depth].seen[child.index / kWordBits];
    const std::uint64_t bit = std::uint64_t{1} << (child.index % kWordBits);
    if ((word & bit) == 0) {
        word |= bit;
        return true;
    }
    return Refuse(ErrorTag::kBadElement, PathOf(child), Described(child) + " is given twice; give it once",
                  {{"bad-element", std::string(child.name)}});
}

bool Walk::CheckAttributes(const Node& child, std::span<const netconf::XmlAttribute> attributes)
{
    for (const netconf::XmlAttribute& attribute : attributes) {
        if (attribute.ns == kXmlNamespace) continue;
        const bool isFilter = !InData() && child.kind == NodeKind::kAny && child.name == "filter";
        if (isFilter && attribute.ns.empty() && (attribute.name == "type" || attribute.name == "select"))
            continue;
        if (InData() && attribute.name == "operation" && attribute.ns == netconf::kBaseNamespace) {
            if (!BadOperation(child, attribute.value)) return false;
            continue;
        }
        const bool isUnqualified = InData() && attribute.name == "operation" && attribute.ns.empty();
        return UnknownAttribute(
            child, attribute.name,
            isUnqualified ? "put it in the NETCONF base namespace, as nc:operation" : "leave it out");
    }
    return true;
}

bool Walk::BadOperation(const Node& child, std::string_view operation)
{
    if (std::find(kOperations.begin(), kOperations.end(), operation) != kOperations.end()) return true;
    return Refuse(ErrorTag::kBadAttribute, PathOf(child),
                  "there is no operation \"" + base::Presentable(operation, kShownValue) +
                      "\"; use merge, replace, create, delete or remove",
                  {{"bad-attribute", "operation"}, {"bad-element", std::string(child.name)}});
}

void Walk::Enter(const Node& child)
{
    if (++m_depth == m_frames.size()) m_frames.emplace_back();
    Frame& frame = m_frames[m_depth];
    frame.node = &child;
    frame.textLength = 0;
    if (child.kind == NodeKind::kAny && !m_dataDepth) m_dataDepth = m_depth;
    if (IsLeaf(child)) {
        if (child.isKey) frame.text.clear();
        return;
    }
    const Node& holder = child.kind == NodeKind::kAny ? m_index.Data() : child;
    frame.seen.assign(holder.inOrder.size() / kWordBits + 1, 0);
    frame.entries.clear();
    frame.keys.resize(child.keys);
    for (std::string& key : frame.keys) key.clear();
}

bool Walk::Text(std::string_view piece)
{
    Frame& frame = m_frames[m_depth];
    if (!IsLeaf(*frame.node)) {
        if (piece.find_first_not_of(kBlanks) == std::string_view::npos) return true;
        return BadContent("holds text; it can hold elements only");
    }
    frame.textLength += piece.size();
    if (frame.textLength > m_maxText)
        return Refuse(ErrorTag::kTooBig, Path(),
                      "the value of " + Described(m_depth) + " is longer than " + std::to_string(m_maxText) +
                          " bytes; use a shorter one",
                      {{"bad-element", std::string(frame.node->name)}});
    if (frame.node->isKey) frame.text.append(piece);
    return true;
}

bool Walk::Leave()
{
    Frame& frame = m_frames[m_depth];
    const Node& node = *frame.node;
    if (node.kind == NodeKind::kList && (!CheckKeys(frame) || !CountEntry(frame, m_frames[m_depth - 1])))
        return false;
    if (m_dataDepth == m_depth) m_dataDepth.reset();
    --m_depth;
    if (node.isKey) m_frames[m_depth].keys[node.index].swap(frame.text);
    return true;
}

bool Walk::CheckKeys(const Frame& entry)
{
    for (std::size_t key = 0; key < entry.node->keys; ++key) {
        if ((entry.seen[key / kWordBits] >> (key % kWordBits) & 1U) != 0) continue;
        const std::string name(entry.node->inOrder[key]->name);
        return Refuse(ErrorTag::kMissingElement, Path(),
                      "an entry of list \"" + std::string(entry.node->name) + "\" needs its key \"" + name +
                          "\"; add that element",
                      {{"bad-element", name}});
    }
    return true;
}

bool Walk::CountEntry(const Frame& entry, Frame& holder)
{
    if (entry.node->keys == 0) return true;
    std::string name = std::to_string(entry.node->index);
    for (const std::string& key : entry.keys) name.append(1, '\0').append(key);
    // The hint is right if entries come in order, as most do.
    std::uint8_t& count = holder.entries.try_emplace(holder.entries.end(), std::move(name), 0)->second;
    if (++count <= kMaxOfOneEntry) return true;
    return Refuse(
        ErrorTag::kBadElement, Path(),
        Described(m_depth) + " is given more than " + std::to_string(kMaxOfOneEntry) + " times; give it once",
        {{"bad-element", std::string(entry.node->name)}});
}

}  // namespace guard
