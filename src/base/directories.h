// SPDX-License-Identifier: Apache-2.0
// The directories that the processes share: where the environment names none, each has a default. Used by all
// programs.

#ifndef BASE_DIRECTORIES_H
#define BASE_DIRECTORIES_H

#include <filesystem>
#include <optional>
#include <string>

#include "base/environment.h"

namespace base {

/// Where the sockets are: SFLOW_RUN_DIR, or /run/sflow-switch. Inline: the log has none of this folder's
/// sources.
inline std::string RunDirectory(const Variables& variables = &Variable)
{
    return variables("SFLOW_RUN_DIR").value_or("/run/sflow-switch");
}

/// Where the store is: SFLOW_STATE_DIR, or /var/lib/sflow-switch.
std::string StateDirectory(const Variables& variables = &Variable);

/// The real path of the running program, such as PREFIX/bin/cdbd; empty if it can't be read.
std::filesystem::path ProgramPath();

/// Where the YANG modules are: the directory `named` (SFLOW_YANG_DIR), if given; else one beside the program:
/// share/sflow-switch/yang of an installed tree, which may be anywhere, or yang/ of the source tree that it
/// was built in; else the directory that the build installs to. `program` is as of ProgramPath. The directory
/// need not exist.
std::filesystem::path YangDirectory(const std::filesystem::path& program,
                                    const std::optional<std::string>& named);

}  // namespace base

#endif
