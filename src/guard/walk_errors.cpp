// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <utility>

#include "guard/walk.h"

namespace guard {
namespace {

using cdb::ErrorTag;

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
    if (ns.empty()) {
        Refuse(ErrorTag::kUnknownNamespace, Path(), element + " has no namespace; give it that of its module",
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
    const Node& parent = ParentOf();
    // If the name is known in another namespace, the namespace is what is wrong.
    const auto other = std::find_if(parent.inOrder.begin(), parent.inOrder.end(),
                                    [name](const Node* child) { return child->name == name; });
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
