// SPDX-License-Identifier: Apache-2.0
// SIGINT as the wish to end a command that goes on until then.

#ifndef CLI_COMMANDS_INTERRUPT_H
#define CLI_COMMANDS_INTERRUPT_H

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

#include "base/unique_fd.h"

namespace cli {

/// Takes SIGINT as something to wait for, until its end.
class Interrupt {
public:
    Interrupt()
    {
        sigset_t only;
        sigemptyset(&only);
        sigaddset(&only, SIGINT);
        ::pthread_sigmask(SIG_BLOCK, &only, &m_before);
        m_descriptor = base::UniqueFd(::signalfd(-1, &only, SFD_CLOEXEC | SFD_NONBLOCK));
    }
    ~Interrupt()
    {
        // One that is pending was meant for this command.
        signalfd_siginfo taken{};
        while (::read(m_descriptor.Get(), &taken, sizeof taken) > 0) {
        }
        ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;
    [[nodiscard]] int Descriptor() const { return m_descriptor.Get(); }

private:
    sigset_t m_before{};
    base::UniqueFd m_descriptor;
};

}  // namespace cli

#endif
