// SPDX-License-Identifier: Apache-2.0
// The compiled YANG modules as a walk through a document needs them: what each node is, and its
// children by namespace and name. Immutable, so any thread may use it.

#ifndef GUARD_SCHEMA_INDEX_H
#define GUARD_SCHEMA_INDEX_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string_view>
#include <unordered_map>
#include <vector>

struct ly_ctx;
struct lysc_node;

namespace guard {

/// Views into the schema or into what is looked up.
struct QualifiedName {
    std::string_view ns;
    std::string_view name;
    friend bool operator==(const QualifiedName&, const QualifiedName&) = default;
};

struct HashName {
    std::size_t operator()(const QualifiedName& name) const noexcept
    {
        const std::hash<std::string_view> hash;
        return hash(name.name) * 31 + hash(name.ns);
    }
};

enum class NodeKind : std::uint8_t { kRoot, kContainer, kList, kLeaf, kLeafList, kAny };

struct Node {
    NodeKind kind = NodeKind::kRoot;
    bool isKey = false;
    bool isState = false;
    std::size_t keys = 0;               // how many a list has; they are its first children
    std::size_t index = 0;              // among its siblings
    const lysc_node* schema = nullptr;  // null for the root of all data
    std::string_view name;
    std::string_view module;
    std::string_view ns;
    std::vector<const Node*> inOrder;  // the children, keys first
    std::unordered_map<QualifiedName, const Node*, HashName> children;

    [[nodiscard]] bool Repeats() const { return kind == NodeKind::kList || kind == NodeKind::kLeafList; }
    /// Null if there is no such child.
    [[nodiscard]] const Node* Child(std::string_view childNs, std::string_view childName) const;
};

class SchemaIndex {
public:
    /// `context` must outlive the index.
    explicit SchemaIndex(const ly_ctx* context);
    SchemaIndex(const SchemaIndex&) = delete;
    SchemaIndex& operator=(const SchemaIndex&) = delete;

    [[nodiscard]] const ly_ctx* Context() const { return m_context; }
    /// The root: its children are the top-level data nodes.
    [[nodiscard]] const Node& Data() const { return m_data; }
    /// The operation; its children are its input parameters. Null if there is none.
    [[nodiscard]] const Node* Operation(std::string_view ns, std::string_view name) const;
    /// Whether an implemented module has this namespace.
    [[nodiscard]] bool HasNamespace(std::string_view ns) const { return m_modules.contains(ns); }
    /// The implemented module of the namespace; empty if there is none.
    [[nodiscard]] std::string_view ModuleOf(std::string_view ns) const;
    /// The namespace of the implemented module; empty if there is none.
    [[nodiscard]] std::string_view NamespaceOf(std::string_view module) const;

private:
    Node& Make(const lysc_node* schema);
    void AddChildren(Node& parent);
    void Add(Node& parent, const lysc_node* schema);

    const ly_ctx* m_context;
    std::deque<Node> m_nodes;  // a deque, for nodes must keep their addresses
    Node m_data;
    std::unordered_map<QualifiedName, const Node*, HashName> m_operations;
    std::unordered_map<std::string_view, std::string_view> m_namespaces;  // by module
    std::unordered_map<std::string_view, std::string_view> m_modules;     // by namespace
};

}  // namespace guard

#endif
