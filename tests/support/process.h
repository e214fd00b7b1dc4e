// SPDX-License-Identifier: Apache-2.0
// Child processes of a test: started with their output in files, ended with their owner, and killed
// by the kernel should the test die. Used by World and by tests that run a program to its end.

#ifndef SUPPORT_PROCESS_H
#define SUPPORT_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/poll.h"

namespace support {

struct Command {
    std::vector<std::string> argv;                     // argv[0]: the program's path, or a name in PATH
    std::map<std::string, std::string> environment{};  // added to the test's own
    std::filesystem::path output{};                    // where standard output goes; empty: /dev/null
    std::filesystem::path errors{};                    // where standard error goes; empty: /dev/null
    std::filesystem::path input{};                     // what standard input reads; empty: /dev/null
};

/// How a process ended: exit status, or 128 + the signal's number.
using ExitStatus = int;

class Process {
public:
    /// Starts the command. Throws std::system_error when the program can't be executed.
    explicit Process(const Command& command);
    /// Kills it with SIGKILL where it still runs, and collects it.
    ~Process();

    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    [[nodiscard]] pid_t Pid() const { return m_pid; }
    [[nodiscard]] bool Running();
    void Signal(int number);

    /// Stops it (SIGSTOP) and returns when the kernel says that it has stopped.
    void Freeze();
    void Thaw();

    /// Waits for its end. Throws TimedOut.
    ExitStatus Wait(std::chrono::milliseconds within = kPatience);
    /// SIGKILL, and waits.
    void Kill();
    /// SIGTERM, and waits for its end.
    ExitStatus Terminate();

private:
    std::string m_name;
    pid_t m_pid = -1;
    std::optional<ExitStatus> m_status;
};

struct RunResult {
    ExitStatus status = 0;
    std::string output;
    std::string errors;
};

/// Runs a program to its end with the text as its standard input. `scratch` is a directory for its
/// output while it runs.
RunResult Run(const std::filesystem::path& scratch, const std::vector<std::string>& argv,
              const std::map<std::string, std::string>& environment = {}, const std::string& input = {});

/// The whole file; empty if there is none.
std::string ReadFile(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, const std::string& text);

/// A directory of the test's own under the system's temporary directory, removed with everything in
/// it. Its path is short, because socket paths are limited to 107 bytes.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    [[nodiscard]] const std::filesystem::path& Path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

}  // namespace support

#endif
