// SPDX-License-Identifier: Apache-2.0
// Finds the switch's YANG modules, for all programs that load them.

#ifndef CDB_SCHEMA_YANG_DIRECTORY_H
#define CDB_SCHEMA_YANG_DIRECTORY_H

#include <filesystem>
#include <optional>
#include <string>

namespace cdb {

/// The directory `named` (SFLOW_YANG_DIR), if given; else one beside the program: share/sflow-switch/yang of
/// an installed tree, which may be anywhere, or yang/ of the source tree that it was built in; else the
/// directory that the build installs to. `program` is its real path, such as PREFIX/bin/cdbd; it may be
/// empty. The directory need not exist.
std::filesystem::path YangDirectory(const std::filesystem::path& program,
                                    const std::optional<std::string>& named);

}  // namespace cdb

#endif
