// SPDX-License-Identifier: Apache-2.0
// The errors of an edit; each text names the thing and the remedy. Used by the editor.

#ifndef CDB_DATASTORE_EDIT_ERRORS_H
#define CDB_DATASTORE_EDIT_ERRORS_H

#include <string>

#include "cdb/model/error.h"
#include "cdb/schema/schema.h"

struct lyd_node;

namespace cdb {

/// The data path of an edit's node; opaque nodes have one too.
std::string EditPath(const lyd_node* edit);

Error BadOperation(const lyd_node* edit, const std::string& operation);
Error DataExists(const lyd_node* edit);
Error NothingToDelete(const lyd_node* edit);
Error NothingThere(const lyd_node* edit);
Error KeyCannotGo(const lyd_node* edit);
Error GivenTwice(const lyd_node* edit);
Error NotTheDefault(const lyd_node* edit);
Error NotConfiguration(const lyd_node* edit);
Error NotKept(const lyd_node* edit);

/// A callpoint's write that the schema does not accept.
Error BadWrite(const std::string& callpoint, const std::string& path, const std::string& why);

/// The schema node that an opaque node names, or null.
const lysc_node* MeantBy(const Schema& schema, const lyd_node* opaque);

/// Why libyang could not read the node and kept it as opaque.
Error OpaqueError(const Schema& schema, const lyd_node* opaque);

}  // namespace cdb

#endif
