// SPDX-License-Identifier: Apache-2.0
// Reads a configuration file: RFC 7951 JSON or XML. Used by --init and --import.

#ifndef AGENT_FILES_CONFIGURATION_FILE_H
#define AGENT_FILES_CONFIGURATION_FILE_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "agent/data/yang_tree.h"
#include "cdb/datastore/datastore.h"
#include "cdb/model/error.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"

namespace agent {

/// The file's content, not validated; its first character tells the format. Throws cdb::FatalError that names
/// the file and, for wrong content, its place in the text or its data path.
Tree ReadConfiguration(const cdb::Schema& schema, const std::filesystem::path& file);

/// Makes a file the first content of an empty store: loads it as ReadConfiguration does and commits it.
/// Returns warnings. Throws cdb::FatalError that names the file; the store is then as before. `nowUs`:
/// microseconds since the epoch.
std::vector<std::string> LoadInitialFile(const cdb::Schema& schema, const cdb::Store& store,
                                         cdb::Datastore& datastore, const std::filesystem::path& file,
                                         const std::string& user, std::int64_t nowUs);

/// Throws cdb::FatalError that names the file.
[[noreturn]] void FailFile(const std::filesystem::path& file, const std::string& what);

/// The errors' messages, joined by "; ".
std::string TextOf(const std::vector<cdb::Error>& errors);

}  // namespace agent

#endif
