// SPDX-License-Identifier: Apache-2.0
// Derives the schema table from compiled YANG modules. Used by the files of the schema.

#ifndef CDB_SCHEMA_DERIVE_H
#define CDB_SCHEMA_DERIVE_H

#include <vector>

#include "cdb/model/schema_table.h"

struct ly_ctx;
struct lysc_node;

namespace cdb {

struct DerivedSchema {
    SchemaTable table;
    std::vector<const lysc_node*> compiled;  // by NodeId
};

/// The compiled node's row in the table; kNoNode if it is null or has none. DeriveSchema has to come first.
NodeId IdOf(const lysc_node* node);

/// The configuration nodes of every implemented module, in the order in which the modules were loaded. Throws
/// FatalError as Schema::Load says.
DerivedSchema DeriveSchema(const ly_ctx* context);

}  // namespace cdb

#endif
