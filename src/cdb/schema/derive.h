// SPDX-License-Identifier: Apache-2.0
// Derives the schema table from compiled YANG modules. Used by schema.cpp only.

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

/// The configuration nodes of every implemented module, in the order in which the modules were loaded. Throws
/// FatalError as Schema::Load says.
DerivedSchema DeriveSchema(const ly_ctx* context);

}  // namespace cdb

#endif
