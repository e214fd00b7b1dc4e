// SPDX-License-Identifier: Apache-2.0
// Copies of a store, made while it is used.

#ifndef CDB_STORE_BACKUP_H
#define CDB_STORE_BACKUP_H

#include <filesystem>
#include <optional>

#include "cdb/model/error.h"

namespace cdb {

class Environment;

/// Writes the store as it is now, without its free pages, into a new file, durably. `file` must be an
/// absolute path. An existing file is an error and stays. A killed process leaves nothing under the file's
/// name.
std::optional<Error> CopyEnvironment(const Environment& environment, const std::filesystem::path& file);

}  // namespace cdb

#endif
