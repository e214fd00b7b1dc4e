// SPDX-License-Identifier: Apache-2.0
#include "guard/walk.h"

#include <algorithm>
#include <array>
#include <utility>

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
constexpr std::array<std::string_view, 5> kOperations{"merge", "replace", "create", "delete", "remove"};

bool IsLeaf(const Node& node) { return node.kind == NodeKind::kLeaf || node.kind == NodeKind::kLeafList; }

/// A message names at most this many possible children.
constexpr std::size_t kShownChildren = 30;

std::string Quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

/// In bytes. The store takes no longer key, so no path shows one.
constexpr std::size_t kShownKey = 511;

/// "[name='eth1']"; empty if the key is empty, too long, or can't be put in one pair of quotes.
std::string Predicate(std::string_view name, const std::string& key)
{
    const char quote = key.find('\'') == std::string::npos ? '\'' : '"';
    if (key.empty() || key.size() > kShownKey || key.find(quote) != std::string::npos) return {};
    return '[' + std::string(name) + '=' + quote + key + quote + ']';
}

void AppendStep(std::string& path, const Node& node, std::string_view parentModule)
{
    path += '/';
    if (node.module != parentModule) path.append(node.module).append(":");
    path += node.name;
}

std::string ChildrenOf(const Node& parent, bool withState)
{
    std::string names;
    std::size_t count = 0;
    for (const Node* child : parent.inOrder) {
        if (child->isState && !withState) continue;
        if (++count > kShownChildren) return names + ", ...";
        names += (names.empty() ? "" : ", ") + std::string(child->name);
    }
    return names.empty() ? "nothing" : names;
}

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
        if (attribute.ns == netconf::kXmlNamespace) continue;
        const bool isFilter = !InData() && child.kind == NodeKind::kAny && child.name == "filter";
        if (isFilter && attribute.ns.empty() && (attribute.name == "type" || attribute.name == "select"))
            continue;
        const bool isOperation = InData() && m_allowed.operation && attribute.name == "operation";
        if (isOperation && attribute.ns == netconf::kBaseNamespace) {
            if (!BadOperation(child, attribute.value)) return false;
            continue;
        }
        if (InData() && m_allowed.isDefault && child.kind == NodeKind::kLeaf && !child.isKey &&
            attribute.name == "default" && attribute.ns == netconf::kDefaultAttributeNamespace) {
            if (!CheckDefault(child, attributes, attribute.value)) return false;
            continue;
        }
        const bool isUnqualified = isOperation && attribute.ns.empty();
        return UnknownAttribute(
            child, attribute.name,
            isUnqualified ? "put it in the NETCONF base namespace, as nc:operation" : "leave it out");
    }
    return true;
}

/// An xs:boolean, and no operation beside it that takes the leaf out.
bool Walk::CheckDefault(const Node& child, std::span<const netconf::XmlAttribute> attributes,
                        std::string_view value)
{
    static constexpr std::array<std::string_view, 4> kBooleans{"true", "false", "1", "0"};
    const auto bad = [&](const std::string& message) {
        return Refuse(ErrorTag::kBadAttribute, PathOf(child), message,
                      {{"bad-attribute", "default"}, {"bad-element", std::string(child.name)}});
    };
    if (std::find(kBooleans.begin(), kBooleans.end(), value) == kBooleans.end())
        return bad("the attribute \"default\" of " + Described(child) + " can't be \"" +
                   base::Presentable(value, kShownValue) + "\"; use true or false");
    for (const netconf::XmlAttribute& other : attributes)
        if (other.name == "operation" && (other.value == "delete" || other.value == "remove"))
            return bad(Described(child) + " is tagged as a default and deleted; leave one out");
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
        if (piece.find_first_not_of(netconf::kXmlBlanks) == std::string_view::npos) return true;
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

bool Walk::Refuse(ErrorTag tag, std::string path, std::string message,
                  std::vector<std::pair<std::string, std::string>> info)
{
    m_problem.tag = tag;
    m_problem.path = std::move(path);
    m_problem.message = std::move(message);
    m_problem.info = std::move(info);
    return false;
}

void Walk::RefuseUnknown(std::string_view ns, std::string_view name)
{
    const std::string element = "element " + Quoted(name);
    const std::pair<std::string, std::string> bad{"bad-element", std::string(name)};
    const Node& parent = ParentOf();
    // If the name is known in another namespace, the namespace is what is wrong.
    const auto other = std::find_if(parent.inOrder.begin(), parent.inOrder.end(),
                                    [name](const Node* child) { return child->name == name; });
    if (ns.empty()) {
        const std::string wanted =
            other == parent.inOrder.end() ? "that of its module" : "the namespace " + Quoted((*other)->ns);
        Refuse(ErrorTag::kUnknownNamespace, Path(), element + " has no namespace; give it " + wanted,
               {bad, {"bad-namespace", ""}});
        return;
    }
    if (!m_index.HasNamespace(ns)) {
        Refuse(ErrorTag::kUnknownNamespace, Path(),
               element + " is in the namespace " + Quoted(ns) +
                   ", which no module here has; use a namespace that this server announces",
               {bad, {"bad-namespace", std::string(ns)}});
        return;
    }
    std::string message =
        Described(m_depth) + " has no " + element + "; known here: " + ChildrenOf(parent, !InData());
    if (other != parent.inOrder.end())
        message = Described(m_depth) + " has no " + element + " in the namespace " + Quoted(ns) +
                  "; its namespace is " + Quoted((*other)->ns);
    std::string path = Path();
    const std::string_view module = m_index.ModuleOf(ns);
    const bool inherits = !path.empty() && module == Here().module;
    path.append("/").append(inherits ? "" : module).append(inherits ? "" : ":").append(name);
    Refuse(ErrorTag::kUnknownElement, std::move(path), std::move(message), {bad});
}

bool Walk::BadContent(const std::string& message)
{
    return Refuse(ErrorTag::kBadElement, Path(), Described(m_depth) + ' ' + message,
                  {{"bad-element", std::string(Here().name)}});
}

bool Walk::UnknownAttribute(const Node& child, std::string_view name, std::string_view why)
{
    return Refuse(ErrorTag::kUnknownAttribute, PathOf(child),
                  "the attribute " + Quoted(name) + " of " + Described(child) + " means nothing here; " +
                      std::string(why),
                  {{"bad-attribute", std::string(name)}, {"bad-element", std::string(child.name)}});
}

std::string Walk::Path() const
{
    std::string path;
    std::string_view module;
    std::size_t depth = 0;
    if (m_dataDepth) depth = *m_dataDepth + 1;
    for (; depth <= m_depth; ++depth) {
        const Frame& frame = m_frames[depth];
        AppendStep(path, *frame.node, module);
        module = frame.node->module;
        if (frame.node->kind != NodeKind::kList) continue;
        for (std::size_t key = 0; key < frame.keys.size(); ++key)
            path += Predicate(frame.node->inOrder[key]->name, frame.keys[key]);
    }
    return path;
}

std::string Walk::PathOf(const Node& child) const
{
    std::string path = Path();
    AppendStep(path, child, path.empty() ? std::string_view{} : Here().module);
    return path;
}

std::string Walk::Described(std::size_t depth) const
{
    const Frame& frame = m_frames[depth];
    const std::string name(frame.node->name);
    switch (frame.node->kind) {
    case NodeKind::kRoot:
        return "the configuration";
    case NodeKind::kList:
        if (frame.keys.empty() || frame.keys[0].empty() || frame.keys[0].size() > kShownKey)
            return "an entry of list " + Quoted(name);
        return name + ' ' + Quoted(frame.keys[0]);
    case NodeKind::kLeaf:
    case NodeKind::kLeafList:
        return "leaf " + Quoted(name) + (depth > 0 ? " of " + Described(depth - 1) : "");
    case NodeKind::kAny:
        return depth == m_dataDepth && depth == m_depth && name == "config" ? "the configuration"
                                                                            : '<' + name + '>';
    case NodeKind::kContainer:
        break;
    }
    return depth == 0 ? "the operation " + name : "container " + Quoted(name);
}

std::string Walk::Described(const Node& child) const
{
    const std::string name = Quoted(child.name);
    switch (child.kind) {
    case NodeKind::kLeaf:
    case NodeKind::kLeafList:
        return "leaf " + name + " of " + Described(m_depth);
    case NodeKind::kList:
        return "list " + name;
    case NodeKind::kAny:
        return '<' + std::string(child.name) + '>';
    default:
        return "container " + name;
    }
}

}  // namespace guard
