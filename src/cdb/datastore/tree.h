// SPDX-License-Identifier: Apache-2.0
// Operations on libyang's data trees: finding, making and taking out nodes in time that does not depend on
// the number of siblings. Knows neither edits nor commits. Used by the datastore and by the agent.
//
// The trees here are complete: they have every plain container and every leaf that is at its default, both
// flagged as default if nothing was set explicitly.

#ifndef CDB_DATASTORE_TREE_H
#define CDB_DATASTORE_TREE_H

#include <string>
#include <vector>

#include "cdb/model/path.h"
#include "cdb/model/row.h"
#include "cdb/model/value.h"
#include "cdb/schema/libyang_owner.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"

namespace cdb {

/// A step in the data: the schema node, and a list entry's own keys.
struct Place {
    NodeId node = kNoNode;
    std::vector<std::string> keys;
    friend auto operator<=>(const Place&, const Place&) = default;
};

/// A tree with nothing set: the top-level containers of the schema table. Throws FatalError.
TreePtr EmptyTree(const Schema& schema);

/// The number of a list's keys.
std::size_t KeyCount(const lysc_node* list);

/// Null if there is none. `siblings`: any of the siblings to search, or null.
lyd_node* FindSingle(const lyd_node* siblings, const lysc_node* schema);
lyd_node* FindEntry(const lyd_node* siblings, const lysc_node* schema, const std::vector<std::string>& keys);
lyd_node* FindPlace(const Schema& schema, const lyd_node* siblings, const Place& place);

/// The entry or container of that row, or null.
lyd_node* FindRow(const Schema& schema, const lyd_node* tree, const RowKey& key);

/// The keys of a list entry; empty for other nodes.
std::vector<std::string> KeysOf(const lyd_node* node);

/// The node's places from the root to itself.
std::vector<Place> PlacesOf(const Schema& schema, const lyd_node* node);

/// The row key of an entry or container.
RowKey RowKeyOf(const Schema& schema, const lyd_node* node);

/// As in the client API: "/config/oam/sflow/interface{eth1}".
std::string TextOf(const SchemaTable& table, const RowKey& key);

/// As in messages: `interface "eth1"`, `leaf "port" of collector "c1"`.
std::string Describe(const lyd_node* node);
/// The same of an entry or container.
std::string Describe(const SchemaTable& table, const RowKey& key);

/// libyang's data path: "/switch-config:config/switch-oam-sflow:oam/sflow/interface[name='eth1']".
std::string DataPath(const lyd_node* node);
/// The same of a row, or of a leaf below the entries with these keys.
std::string DataPath(const SchemaTable& table, const RowKey& key);

/// Whether the node was set explicitly, not filled in as a default.
bool IsExplicit(const lyd_node* node);

/// The leaf's value; `type` is the leaf's in the schema table. No value if the text does not fit it.
Value ValueOf(const lyd_node* leaf, ValueType type);

/// The explicit leaves of an entry or container of a tree, in schema order, keys left out.
Row RowOf(const Schema& schema, const lyd_node* holder);

/// A copy of the node below the parent, if there is one. `options`: LYD_DUP_...
lyd_node* CopyOf(const lyd_node* node, lyd_node* parent, std::uint32_t options);

/// Makes a node. Null if libyang does not accept it; LastMessage says why. A plain container is made complete
/// and flagged as default.
lyd_node* MakeContainer(lyd_node* parent, const lysc_node* schema);
lyd_node* MakeEntry(lyd_node* parent, const lysc_node* schema, const std::vector<std::string>& keys);
lyd_node* MakeLeaf(lyd_node* parent, const lysc_node* schema, const std::string& text);

/// Adds the missing plain containers and default leaves below the node. Nodes there that are flagged as
/// default must be complete already.
void Complete(lyd_node* node);

/// Flags the container as default if nothing below it is explicit, then its parents likewise.
void RefreshDefaultFlag(lyd_node* container);

/// Clears the flag of the container and its parents; call it when something explicit is put into it.
void ClearDefaultFlag(lyd_node* container);

/// libyang's last message; empty if there is none.
std::string LastMessage(const ly_ctx* context);

}  // namespace cdb

#endif
