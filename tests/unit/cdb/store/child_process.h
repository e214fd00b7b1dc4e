// SPDX-License-Identifier: Apache-2.0
// A function run in a process of its own.

#ifndef TESTS_UNIT_CDB_STORE_CHILD_PROCESS_H
#define TESTS_UNIT_CDB_STORE_CHILD_PROCESS_H

#include <sys/types.h>

#include <functional>
#include <string>

class ChildProcess {
public:
    /// `body` gets the end of a pipe to write to; what it returns is the exit status.
    explicit ChildProcess(const std::function<int(int output)>& body);
    /// Kills what is still running.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    [[nodiscard]] pid_t Id() const { return m_id; }
    void Kill() const;

    /// All that it writes until it ends or is killed; waits for that.
    std::string Output();

    /// Reads one character; 0 if the process has ended.
    char ReadOne() const;

    /// The exit status, or 256 plus the signal that ended it. Waits.
    int Status();

private:
    pid_t m_id = -1;
    int m_input = -1;
    int m_status = -1;
};

#endif
