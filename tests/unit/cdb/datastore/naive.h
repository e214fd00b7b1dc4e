// SPDX-License-Identifier: Apache-2.0
// The same answers as the datastore's, found the slow and simple way: by looking at everything.

#ifndef TESTS_UNIT_CDB_DATASTORE_NAIVE_H
#define TESTS_UNIT_CDB_DATASTORE_NAIVE_H

#include <map>
#include <string>
#include <vector>

#include "cdb/model/change_set.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"

struct lyd_node;

namespace tests::naive {

/// The explicit leaves of every entry, and of every container that has some.
using Rows = std::map<std::string, std::map<std::string, std::string>>;

Rows RowsOf(const cdb::Schema& schema, const lyd_node* tree);
Rows RowsOf(const cdb::Schema& schema, const cdb::StoreReader::Snapshot& store);

/// Whether libyang accepts the tree, defaults and all, when it looks at everything.
bool IsValid(const lyd_node* tree);

/// As Lines() of a change set.
std::vector<std::string> Changes(const cdb::Schema& schema, const lyd_node* before, const lyd_node* after);

/// Every node with its value and whether it is at its default, lists sorted. Two trees with the same
/// text are equal down to the flags.
std::string Everything(const lyd_node* tree);

}  // namespace tests::naive

#endif
