// SPDX-License-Identifier: Apache-2.0
// Writes a store's configuration to a file, also while cdbd serves it, and reads one, while no cdbd does.

#ifndef AGENT_FILES_EXPORT_FILE_H
#define AGENT_FILES_EXPORT_FILE_H

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>

#include "cdb/datastore/datastore.h"
#include "cdb/schema/schema.h"

namespace agent {

/// Writes the running configuration, explicit values only: to `out` as JSON if the file is "-", else to the
/// file in the format that its ending says, .json or .xml. The file is replaced as a whole or not at all.
/// Throws cdb::FatalError that names the file, or the store if it was written with other modules.
void ExportFile(const cdb::Schema& schema, const std::filesystem::path& stateDirectory,
                const std::filesystem::path& file, std::ostream& out);

/// Makes the file's content the whole configuration, in one commit; no callpoint is asked. Returns false if
/// it is that already: nothing is written. Throws cdb::FatalError that names the file; the store is then as
/// before. `nowUs`: microseconds since the epoch.
bool ImportFile(const cdb::Schema& schema, cdb::Datastore& datastore, const std::filesystem::path& file,
                const std::string& user, std::int64_t nowUs);

}  // namespace agent

#endif
