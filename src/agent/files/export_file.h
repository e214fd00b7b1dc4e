// SPDX-License-Identifier: Apache-2.0
// A store's configuration to a file and from one, while no cdbd serves it (exporting: while one does, too).

#ifndef AGENT_FILES_EXPORT_FILE_H
#define AGENT_FILES_EXPORT_FILE_H

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>

#include "cdb/datastore/datastore.h"
#include "cdb/schema/schema.h"

namespace agent {

/// Writes the running configuration, explicit values only: to `out` as JSON where the file is "-", else to
/// the file in the form that its ending says, .json or .xml. The file is replaced as a whole or not at all.
/// Throws cdb::FatalError that names the file, or the store where it can't be read by the schema.
void ExportFile(const cdb::Schema& schema, const std::filesystem::path& stateDirectory,
                const std::filesystem::path& file, std::ostream& out);

/// Makes the file's content the whole configuration, in one commit; no callpoint is asked. False: it is that
/// already, and nothing was written. Throws cdb::FatalError that names the file; everything is then as
/// before.
bool ImportFile(const cdb::Schema& schema, cdb::Datastore& datastore, const std::filesystem::path& file,
                const std::string& user, std::int64_t nowUs);

}  // namespace agent

#endif
