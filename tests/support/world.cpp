// SPDX-License-Identifier: Apache-2.0
// A switch of the test's own (see the header).

#include "support/world.h"

#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

#include "support/frames.h"

namespace support {

bool Accepts(const std::filesystem::path& socket)
{
    const sockaddr_un address = UnixAddress(socket);
    const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool accepted =
        connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(descriptor);
    return accepted;
}

World::World(WorldOptions options)
    : m_options(std::move(options)),
      m_stateDir(m_options.stateDir.empty() ? m_dir.Path() / "state" : m_options.stateDir)
{
    std::filesystem::create_directories(RunDir());
    std::filesystem::create_directories(m_stateDir);
}

World::~World() = default;

std::filesystem::path World::Program(const std::string& name)
{
    return std::filesystem::path(SUPPORT_BIN_DIR) / name;
}

std::filesystem::path World::Tree() { return SUPPORT_SOURCE_DIR; }

std::map<std::string, std::string> World::Environment(const std::string& logName) const
{
    return {{"SFLOW_RUN_DIR", RunDir()},
            {"SFLOW_STATE_DIR", m_stateDir},
            {"SFLOW_YANG_DIR", Tree() / "yang"},
            {"SFLOW_LOG", Dir() / (logName + ".log")},
            {"SFLOW_LOG_LEVEL", std::to_string(m_options.logLevel)}};
}

std::unique_ptr<Process> World::Spawn(const std::string& program, const std::vector<std::string>& arguments,
                                      const std::string& logName,
                                      const std::map<std::string, std::string>& environment) const
{
    Command command{.argv = m_options.through, .environment = environment};
    command.environment.insert(m_options.environment.begin(), m_options.environment.end());
    command.environment.merge(Environment(logName));
    command.argv.push_back(Program(program));
    command.argv.insert(command.argv.end(), arguments.begin(), arguments.end());
    command.output = Dir() / (logName + ".out");
    command.errors = Dir() / (logName + ".err");
    return std::make_unique<Process>(command);
}

RunResult World::Initialize(const std::string& configuration)
{
    if (configuration == "{}") return {};  // the store begins empty
    const auto file = Dir() / "initial.json";
    WriteFile(file, configuration);
    return Run({Program("cdbd"), "--init", file});
}

void World::StartCdbd()
{
    m_cdbd = Spawn("cdbd", m_options.cdbdArguments, "cdbd", m_options.cdbdEnvironment);
    Await("cdbd to listen; it says: " + ReadFile(Dir() / "cdbd.err"), [this] {
        if (!m_cdbd->Running()) throw std::runtime_error("cdbd ended: " + Log("cdbd"));
        return Accepts(NetconfSocket()) && Accepts(CdbSocket());
    });
}

void World::StartManager()
{
    const auto file = Dir() / ("journal-" + std::to_string(++m_managers));
    m_journal = std::make_unique<Journal>(file);
    std::vector<std::string> arguments{"--journal", file, "--resync-after",
                                       std::to_string(m_options.resyncAfter)};
    arguments.insert(arguments.end(), m_options.managerArguments.begin(), m_options.managerArguments.end());
    m_manager = Spawn("sflow-mgr", arguments, "sflow-mgr");
    Await("sflow-mgr to listen", [this] {
        if (!m_manager->Running()) throw std::runtime_error("sflow-mgr ended: " + Log("sflow-mgr"));
        return Accepts(ManagerSocket());
    });
}

void World::StartDaemon() { m_daemon = Spawn("sflow-app", {}, "sflow-app"); }

void World::Start(const std::string& configuration)
{
    const auto result = Initialize(configuration);
    if (result.status != 0) throw std::runtime_error("cdbd --init failed: " + result.errors + Log("init"));
    StartCdbd();
    StartManager();
    StartDaemon();
    AwaitLoad();
    AwaitLog("sflow-mgr", "connected to the database");  // it is asked for its state from here on
}

Calls World::AwaitLoad() { return ManagerJournal().Until("SessionLoaded"); }

RunResult World::Run(const std::vector<std::string>& argv, const std::string& input)
{
    return support::Run(Dir(), argv, Environment("run"), input);
}

RunResult World::Cli(const std::string& commands) { return Run({Program("swcli"), "-c", commands}); }

std::string World::CliDone(const std::string& commands)
{
    auto result = Cli(commands);
    if (result.status != 0)
        throw std::runtime_error("swcli -c '" + commands + "' ended with " + std::to_string(result.status) +
                                 ": " + result.errors);
    return result.output;
}

std::string World::Log(const std::string& process) const
{
    return ReadFile(Dir() / (process + ".log")) + ReadFile(Dir() / (process + ".err"));
}

void World::AwaitLog(const std::string& process, const std::string& text) const
{
    Await(process + " to log \"" + text + "\"", [&] { return Log(process).find(text) != std::string::npos; });
}

}  // namespace support
