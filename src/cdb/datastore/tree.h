// SPDX-License-Identifier: Apache-2.0
// What the datastores need of libyang's data trees: finding, making and taking out nodes in time that
// does not depend on how many siblings they have. Knows neither edits nor commits. Used by the files
// of the datastore.
//
// The trees here are complete: every plain container stands in them, and every leaf that is at its
// default, both flagged as default where nothing was set explicitly.

#ifndef CDB_DATASTORE_TREE_H
#define CDB_DATASTORE_TREE_H

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cdb/model/path.h"
#include "cdb/model/value.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"

struct lyd_node;

namespace cdb {

struct FreeTree {
    void operator()(lyd_node* node) const;
};
/// Owns a node with everything below it, or, of a top-level node, all its siblings too.
using TreePtr = std::unique_ptr<lyd_node, FreeTree>;

/// A step in the data: the schema node, and a list entry's own keys.
struct Place {
    NodeId node = kNoNode;
    std::vector<std::string> keys;
    friend auto operator<=>(const Place&, const Place&) = default;
};

/// The datastore's tree with nothing set: the top-level containers of the schema table.
TreePtr EmptyTree(const Schema& schema);

/// How many keys a list has.
std::size_t KeyCount(const lysc_node* list);

/// Null where there is none. `siblings`: any of the siblings to look among, or null.
lyd_node* FindSingle(const lyd_node* siblings, const lysc_node* schema);
lyd_node* FindEntry(const lyd_node* siblings, const lysc_node* schema, const std::vector<std::string>& keys);
lyd_node* FindPlace(const Schema& schema, const lyd_node* siblings, const Place& place);

/// The place in two trees. What one of them has is looked for in the other by the node itself, at a
/// fraction of a look-up by the keys' text.
struct BeforeAndNow {
    lyd_node* before = nullptr;
    lyd_node* now = nullptr;
};
BeforeAndNow FindBoth(const Schema& schema, const lyd_node* siblingsBefore, const lyd_node* siblingsNow,
                      const Place& place);

/// The entry or container of that row, or null.
lyd_node* FindRow(const Schema& schema, const lyd_node* tree, const RowKey& key);

/// The keys of a list entry; empty for other nodes.
std::vector<std::string> KeysOf(const lyd_node* node);

/// The node's places from the root to itself.
std::vector<Place> PlacesOf(const Schema& schema, const lyd_node* node);

/// The row key of an entry or container.
RowKey RowKeyOf(const Schema& schema, const lyd_node* node);

/// As the client API writes it: "/config/oam/sflow/interface{eth1}".
std::string TextOf(const SchemaTable& table, const RowKey& key);

/// As messages name it: `interface "eth1"`, `leaf "port" of collector "c1"`.
std::string Describe(const lyd_node* node);

/// libyang's data path: "/switch-config:config/switch-oam-sflow:oam/sflow/interface[name='eth1']".
std::string DataPath(const lyd_node* node);

/// Whether the node was set and is no default that libyang (or this tree) has filled in.
bool IsExplicit(const lyd_node* node);

/// The leaf's value; the type is the leaf's in the schema table.
Value ValueOf(const lyd_node* leaf, ValueType type);

/// Makes a node. Null, with libyang's message kept, where libyang does not accept it.
/// A plain container comes complete and flagged as default.
lyd_node* MakeContainer(lyd_node* parent, const lysc_node* schema);
lyd_node* MakeEntry(lyd_node* parent, const lysc_node* schema, const std::vector<std::string>& keys);
lyd_node* MakeLeaf(lyd_node* parent, const lysc_node* schema, const std::string& text);

/// Adds what is missing of plain containers and default leaves below the node. What stands there
/// flagged as default must be complete already.
void Complete(lyd_node* node);

/// Flags the container as default where nothing below it is explicit, and its parents likewise.
void RefreshDefaultFlag(lyd_node* container);

/// Something explicit stands in the container now: neither it nor its parents are at their default.
void ClearDefaultFlag(lyd_node* container);

/// What libyang said last; empty for nothing.
std::string LastMessage(const ly_ctx* context);

}  // namespace cdb

#endif
