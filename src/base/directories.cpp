// SPDX-License-Identifier: Apache-2.0
#include "base/directories.h"

#include <system_error>

namespace base {
namespace {

namespace fs = std::filesystem;

constexpr const char* kInstalled = SFLOW_INSTALLED_YANG_DIR;
/// Relative to the program's directory.
constexpr const char* kBeside[] = {"../share/sflow-switch/yang", "../../yang"};
/// The directory must have this module: another one may have the same name.
constexpr const char* kRootModule = "switch-config.yang";

}  // namespace

std::string StateDirectory(const Variables& variables)
{
    return variables("SFLOW_STATE_DIR").value_or("/var/lib/sflow-switch");
}

fs::path ProgramPath()
{
    std::error_code ignored;
    return fs::read_symlink("/proc/self/exe", ignored);
}

fs::path YangDirectory(const fs::path& program, const std::optional<std::string>& named)
{
    if (named) return *named;
    if (program.is_absolute()) {
        for (const char* beside : kBeside) {
            fs::path directory = (program.parent_path() / beside).lexically_normal();
            std::error_code ignored;  // an unreadable place counts as one without modules
            if (fs::is_regular_file(directory / kRootModule, ignored)) return directory;
        }
    }
    return kInstalled;
}

}  // namespace base
