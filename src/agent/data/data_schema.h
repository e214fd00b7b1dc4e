// SPDX-License-Identifier: Apache-2.0
// The data nodes of all modules as reading needs them: children in the order in which they are written, tags
// ready to be appended, defaults as text. Made once from libyang's compiled modules; filters, writer and
// sources use it in any thread.

#ifndef AGENT_DATA_DATA_SCHEMA_H
#define AGENT_DATA_DATA_SCHEMA_H

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cdb/schema/schema.h"

struct lysc_module;
struct lysc_node;

namespace agent {

enum class DataKind { kLeaf, kLeafList, kContainer, kPresenceContainer, kList };

struct DataNode {
    const lysc_node* schema = nullptr;  // null: above the top-level nodes
    DataKind kind = DataKind::kContainer;
    std::string_view name;
    std::string_view ns;
    std::size_t index = 0;  // among its siblings
    std::size_t depth = 0;  // 0: above the top-level nodes
    std::vector<const DataNode*> children;
    std::size_t keyCount = 0;  // of a list; its keys are its first children
    bool isKey = false;
    bool hasLeaves = false;        // other than keys
    bool mayNameIdentity = false;  // a leaf whose value may be an identity, and then has its module's name
    bool hasInner = false;         // containers and lists
    bool hasLists = false;         // lists and leaf-lists, however far below
    std::string open;              // "<collector>", with the namespace where it changes
    std::string close;
    std::vector<std::string> defaults;  // canonical text
    /// The sibling leaf whose value is in use while this one has none (default-ref); mostly null.
    const DataNode* standIn = nullptr;
    cdb::NodeId id = cdb::kNoNode;  // in the schema table; configuration only

    [[nodiscard]] bool IsTerm() const { return kind == DataKind::kLeaf || kind == DataKind::kLeafList; }
    [[nodiscard]] bool IsDefault(std::string_view text) const;
};

class DataSchema {
public:
    /// `schema` must outlive this.
    explicit DataSchema(const cdb::Schema& schema);
    DataSchema(const DataSchema&) = delete;
    DataSchema& operator=(const DataSchema&) = delete;

    [[nodiscard]] const DataNode& Root() const { return m_nodes.front(); }
    /// Null if it is no data node.
    [[nodiscard]] const DataNode* Find(const lysc_node* schema) const;

    [[nodiscard]] std::size_t Depth() const { return m_depth; }        // of the deepest node
    [[nodiscard]] std::size_t MostKeys() const { return m_mostKeys; }  // from the root to any entry

private:
    void AddChildren(const cdb::Schema& schema, DataNode& parent, const lysc_module* module,
                     std::size_t keysAbove);
    DataNode& Add(const cdb::Schema& schema, DataNode& parent, const lysc_node* compiled);
    void MakeIndex();
    void FindStandIns(const cdb::Schema& schema);
    [[nodiscard]] std::size_t SlotOf(const lysc_node* schema) const;

    std::deque<DataNode> m_nodes;
    std::size_t m_depth = 0;
    std::size_t m_mostKeys = 0;
    /// Open addressing by the node's address: looked up for each value that is read.
    std::vector<std::pair<const lysc_node*, const DataNode*>> m_index;
};

}  // namespace agent

#endif
