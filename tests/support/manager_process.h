// SPDX-License-Identifier: Apache-2.0
// A real sflow-mgr as a process, in a directory and on sockets of its own. For tests that are its
// client themselves, and for measurements; the whole switch is world.h.

#ifndef TESTS_SUPPORT_MANAGER_PROCESS_H
#define TESTS_SUPPORT_MANAGER_PROCESS_H

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "support/process.h"

namespace support {

struct ManagerOptions {
    std::vector<std::string> arguments{};
    std::map<std::string, std::string> environment{};  // beyond what it needs
    std::vector<std::string> before{};                 // words before its path: a program that runs it
    int logLevel = 11;
};

class ManagerProcess : public Process {
public:
    /// Returns when it listens. Throws with what it said if it has ended. One after the other may have the
    /// same directory, and their logs are then in one file.
    ManagerProcess(const std::filesystem::path& directory, const ManagerOptions& options);

    [[nodiscard]] std::filesystem::path Socket() const { return m_directory / "run" / "manager.sock"; }
    /// What it has logged, and what it said otherwise.
    [[nodiscard]] std::string Log() const;

private:
    std::filesystem::path m_directory;
};

}  // namespace support

#endif
