// SPDX-License-Identifier: Apache-2.0
#include "cdb/schema/yang_directory.h"

#include <system_error>

namespace cdb {
namespace {

namespace fs = std::filesystem;

constexpr const char* kInstalled = SFLOW_INSTALLED_YANG_DIR;
/// From the program's directory.
constexpr const char* kBeside[] = {"../share/sflow-switch/yang", "../../yang"};
/// A directory of that name may be another's: this module tells.
constexpr const char* kRootModule = "switch-config.yang";

}  // namespace

fs::path YangDirectory(const fs::path& program, const std::optional<std::string>& named)
{
    if (named) return *named;
    if (program.is_absolute()) {
        for (const char* beside : kBeside) {
            const fs::path directory = (program.parent_path() / beside).lexically_normal();
            std::error_code ignored;  // a place that can't be looked at is no place for modules
            if (fs::is_regular_file(directory / kRootModule, ignored)) return directory;
        }
    }
    return kInstalled;
}

}  // namespace cdb
