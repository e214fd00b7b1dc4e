// SPDX-License-Identifier: Apache-2.0
// A configuration file becomes the first content of an empty store.

#ifndef AGENT_FILES_INITIAL_FILE_H
#define AGENT_FILES_INITIAL_FILE_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "cdb/datastore/datastore.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"

namespace agent {

/// Loads RFC 7951 JSON or XML, told apart by the content, and commits it. Returns warnings. Throws
/// cdb::FatalError that names the file and, where something in it is wrong, the line, the column of
/// what is malformed, and the path of what the schema does not take; the store is then as before.
std::vector<std::string> LoadInitialFile(const cdb::Schema& schema, const cdb::Store& store,
                                         cdb::Datastore& datastore, const std::filesystem::path& file,
                                         const std::string& user, std::int64_t nowUs);

}  // namespace agent

#endif
