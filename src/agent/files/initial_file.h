// SPDX-License-Identifier: Apache-2.0
// Makes a configuration file the first content of an empty store.

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

/// Loads the file as ReadConfiguration does and commits it. Returns warnings. Throws cdb::FatalError that
/// names the file; the store is then as before. `nowUs`: microseconds since the epoch.
std::vector<std::string> LoadInitialFile(const cdb::Schema& schema, const cdb::Store& store,
                                         cdb::Datastore& datastore, const std::filesystem::path& file,
                                         const std::string& user, std::int64_t nowUs);

}  // namespace agent

#endif
