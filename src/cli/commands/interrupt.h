// SPDX-License-Identifier: Apache-2.0
// SIGINT as the wish to end a command that goes on until then, and other signals that it waits for.

#ifndef CLI_COMMANDS_INTERRUPT_H
#define CLI_COMMANDS_INTERRUPT_H

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>
#include <optional>

#include "base/unique_fd.h"

namespace cli {

/// Takes the signals as something to wait for, until its end.
class Interrupt {
public:
    explicit Interrupt(std::initializer_list<int> signals = {SIGINT})
    {
        sigset_t only;
        sigemptyset(&only);
        for (const int each : signals) sigaddset(&only, each);
        ::pthread_sigmask(SIG_BLOCK, &only, &m_before);
        m_descriptor = base::UniqueFd(::signalfd(-1, &only, SFD_CLOEXEC | SFD_NONBLOCK));
    }
    ~Interrupt()
    {
        // One that is pending was meant for this command.
        while (Take()) {
        }
        ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;
    /// Can be read when one has come.
    [[nodiscard]] int Descriptor() const { return m_descriptor.Get(); }
    /// One that has come; nullopt if none has.
    [[nodiscard]] std::optional<int> Take() const
    {
        signalfd_siginfo taken{};
        if (::read(m_descriptor.Get(), &taken, sizeof taken) != sizeof taken) return std::nullopt;
        return static_cast<int>(taken.ssi_signo);
    }

private:
    sigset_t m_before{};
    base::UniqueFd m_descriptor;
};

}  // namespace cli

#endif
