// SPDX-License-Identifier: Apache-2.0
// Where a program finds the switch's YANG modules: one look-up for all programs that load them.

#ifndef CDB_SCHEMA_YANG_DIRECTORY_H
#define CDB_SCHEMA_YANG_DIRECTORY_H

#include <filesystem>
#include <optional>
#include <string>

namespace cdb {

/// The directory that is `named` (SFLOW_YANG_DIR) if one is; else what is beside the program:
/// share/sflow-switch/yang of an installed tree, which may be anywhere, or yang/ of the source tree that it
/// was built in; else where the build was to be installed. `program` is its real path, such as
/// PREFIX/bin/cdbd; it may be empty.
std::filesystem::path YangDirectory(const std::filesystem::path& program,
                                    const std::optional<std::string>& named);

}  // namespace cdb

#endif
