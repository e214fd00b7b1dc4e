// SPDX-License-Identifier: Apache-2.0
// A real sflow-mgr as a process (see the header).

#include "support/manager_process.h"

#include <stdexcept>

#include "support/world.h"

namespace support {
namespace {

Command CommandOf(const std::filesystem::path& directory, const ManagerOptions& options)
{
    Command command{.argv = options.before, .environment = options.environment};
    command.argv.push_back(World::Program("sflow-mgr"));
    command.argv.insert(command.argv.end(),
                        {"--resync-after", "0"});  // the session's client does not know how
    command.argv.insert(command.argv.end(), options.arguments.begin(), options.arguments.end());
    command.environment["SFLOW_RUN_DIR"] = directory / "run";
    command.environment["SFLOW_LOG"] = directory / "log";
    command.environment["SFLOW_LOG_LEVEL"] = std::to_string(options.logLevel);
    command.errors = directory / "errors";
    return command;
}

}  // namespace

ManagerProcess::ManagerProcess(const std::filesystem::path& directory, const ManagerOptions& options)
    : Process(CommandOf(directory, options)), m_directory(directory)
{
    Await("sflow-mgr to listen", [this] {
        if (!Running()) throw std::runtime_error("sflow-mgr has ended: " + Log());
        return Accepts(Socket());
    });
}

std::string ManagerProcess::Log() const
{
    return ReadFile(m_directory / "errors") + ReadFile(m_directory / "log");
}

}  // namespace support
