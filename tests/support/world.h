// SPDX-License-Identifier: Apache-2.0
// A switch of the test's own: cdbd, sflow-mgr and sflow-app as real processes on directories and
// sockets of its own. Not a fixture: does not use GoogleTest, so that the measurements
// use it too.

#ifndef SUPPORT_WORLD_H
#define SUPPORT_WORLD_H

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/journal.h"
#include "support/process.h"

namespace support {

/// What the World's processes are started with beyond what every one of them needs.
struct WorldOptions {
    std::vector<std::string> cdbdArguments{};
    std::vector<std::string> managerArguments{};
    /// sflow-mgr's --resync-after, in seconds. Without it, what a session tells is what a test has caused.
    int resyncAfter = 0;
    /// A program that becomes the process, and its arguments: "setpriv", ...
    std::vector<std::string> through{};
    std::map<std::string, std::string> environment{};
    int logLevel = 10;
    std::filesystem::path stateDir{};  // empty: within the World's own directory
    std::map<std::string, std::string> cdbdEnvironment{};
};

class World {
public:
    explicit World(WorldOptions options = {});
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    [[nodiscard]] const std::filesystem::path& Dir() const { return m_dir.Path(); }
    [[nodiscard]] std::filesystem::path RunDir() const { return Dir() / "run"; }
    [[nodiscard]] std::filesystem::path StateDir() const { return m_stateDir; }
    [[nodiscard]] std::filesystem::path NetconfSocket() const { return RunDir() / "netconf.sock"; }
    [[nodiscard]] std::filesystem::path CdbSocket() const { return RunDir() / "cdb.sock"; }
    [[nodiscard]] std::filesystem::path ManagerSocket() const { return RunDir() / "manager.sock"; }

    /// The path of a program of this build.
    [[nodiscard]] static std::filesystem::path Program(const std::string& name);
    /// The source tree.
    [[nodiscard]] static std::filesystem::path Tree();

    /// Loads the configuration (RFC 7951 JSON) into the empty store; returns how that ended.
    /// "{}" leaves the store alone.
    RunResult Initialize(const std::string& configuration);

    /// Start one process. The first two return when its sockets accept; the daemon's returns at once.
    void StartCdbd();
    void StartManager();
    void StartDaemon();

    /// All three on this configuration; returns when the daemon has loaded it, with the journal read up
    /// to there.
    void Start(const std::string& configuration);

    /// Waits for the daemon's next complete load; returns its calls, session marks included.
    Calls AwaitLoad();

    [[nodiscard]] Process& Cdbd() { return *m_cdbd; }
    [[nodiscard]] Process& Manager() { return *m_manager; }
    [[nodiscard]] Process& Daemon() { return *m_daemon; }

    /// The journal of the current manager's life. Each start of a manager has a file of its own.
    [[nodiscard]] Journal& ManagerJournal() { return *m_journal; }

    /// Runs `swcli -c COMMANDS`.
    RunResult Cli(const std::string& commands);
    /// The same, but throws with its errors if the status is not 0; returns standard output.
    std::string CliDone(const std::string& commands);

    /// Any program of the build or the system, with the World's environment.
    RunResult Run(const std::vector<std::string>& argv, const std::string& input = {});
    [[nodiscard]] std::map<std::string, std::string> Environment(const std::string& logName) const;

    /// What a process ("cdbd", "sflow-mgr", "sflow-app") has logged, over all its lives.
    [[nodiscard]] std::string Log(const std::string& process) const;
    /// Waits for the text in a process's log.
    void AwaitLog(const std::string& process, const std::string& text) const;

    /// A further process with the World's environment and these additions, its log under its name.
    std::unique_ptr<Process> Spawn(const std::string& program, const std::vector<std::string>& arguments,
                                   const std::string& logName,
                                   const std::map<std::string, std::string>& environment = {}) const;

private:
    WorldOptions m_options;
    TempDir m_dir;
    std::filesystem::path m_stateDir;
    int m_managers = 0;
    std::unique_ptr<Journal> m_journal;
    std::unique_ptr<Process> m_cdbd;
    std::unique_ptr<Process> m_manager;
    std::unique_ptr<Process> m_daemon;
};

/// Whether a process listens on the Unix socket.
bool Accepts(const std::filesystem::path& socket);

}  // namespace support

#endif
