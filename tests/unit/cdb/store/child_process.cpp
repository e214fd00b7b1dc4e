// SPDX-License-Identifier: Apache-2.0
// A function run in a process of its own.

#include "child_process.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <exception>
#include <stdexcept>

ChildProcess::ChildProcess(const std::function<int(int output)>& body)
{
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) throw std::runtime_error("pipe");
    m_id = fork();
    if (m_id == 0) {
        close(ends[0]);
        int status = 99;
        try {
            status = body(ends[1]);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "child: %s\n", error.what());
        }
        _exit(status);
    }
    close(ends[1]);
    m_input = ends[0];
}

ChildProcess::~ChildProcess()
{
    if (m_status < 0) {
        Kill();
        Status();
    }
    close(m_input);
}

void ChildProcess::Kill() const { kill(m_id, SIGKILL); }

std::string ChildProcess::Output()
{
    std::string text;
    while (const char one = ReadOne()) text += one;
    return text;
}

char ChildProcess::ReadOne() const
{
    char one = 0;
    return read(m_input, &one, 1) == 1 ? one : '\0';
}

int ChildProcess::Status()
{
    if (m_status >= 0) return m_status;
    int status = 0;
    waitpid(m_id, &status, 0);
    constexpr int kSignalBase = 256;
    m_status = WIFEXITED(status) ? WEXITSTATUS(status) : kSignalBase + WTERMSIG(status);
    return m_status;
}
