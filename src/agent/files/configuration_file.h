// SPDX-License-Identifier: Apache-2.0
// Configuration in files, RFC 7951 JSON or XML: makes one the first content of a store, writes a store's
// configuration to one, also while cdbd serves it, and reads one, while no cdbd does. Used by --init,
// --export and --import.

#ifndef AGENT_FILES_CONFIGURATION_FILE_H
#define AGENT_FILES_CONFIGURATION_FILE_H

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

#include "cdb/datastore/datastore.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"

namespace agent {

/// Makes a file the first content of an empty store: its first character tells the format.
/// Returns warnings. Throws cdb::FatalError that names the file; the store is then as before. `nowUs`:
/// microseconds since the epoch.
std::vector<std::string> LoadInitialFile(const cdb::Schema& schema, const cdb::Store& store,
                                         cdb::Datastore& datastore, const std::filesystem::path& file,
                                         const std::string& user, std::int64_t nowUs);

/// Writes the running configuration, explicit values only: to `out` as JSON if the file is "-", else to the
/// file in the format that its ending says, .json or .xml. The file is replaced as a whole or not at all.
/// Throws cdb::FatalError that names the file, or the store if it was written with other modules.
void ExportFile(const cdb::Schema& schema, const std::filesystem::path& stateDirectory,
                const std::filesystem::path& file, std::ostream& out);

/// Makes the file's content the whole configuration, in one commit; no callpoint is asked. Returns false if
/// it is that already: no commit is made. A confirmed commit that waits (CommitInfo::pending) waits no
/// longer. Throws cdb::FatalError that names the file; the store is then as before. `nowUs`: microseconds
/// since the epoch.
bool ImportFile(const cdb::Schema& schema, cdb::Datastore& datastore, const std::filesystem::path& file,
                const std::string& user, std::int64_t nowUs);

}  // namespace agent

#endif
