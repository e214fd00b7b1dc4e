// SPDX-License-Identifier: Apache-2.0
// Tries the way to a collector for an operator: sends it one datagram and waits a second for what the network
// answers. The datagram is of a sub-agent of its own, so that the sequence numbers of the collector's stream
// stay as they are. Used by the assembly.

#ifndef MANAGER_EXPORT_COLLECTOR_TEST_H
#define MANAGER_EXPORT_COLLECTOR_TEST_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <system_error>

#include "base/timers.h"
#include "manager/export/stream_socket.h"
#include "manager/service/operation.h"
#include "manager/settings/own_settings.h"
#include "wire/sample.h"

namespace manager {

/// What became of the datagram.
struct CollectorTested {
    enum class Outcome : std::uint8_t {
        kNotSent,      // the kernel has not taken it
        kRefused,      // no program listens at the port
        kUnreachable,  // a host or network on the way has said so, or another error was reported
        kSilent,       // nothing came back
    };
    Outcome outcome = Outcome::kSilent;
    std::error_code error;          // null with kSilent
    wire::DatagramHeader datagram;  // as it was sent
    std::size_t size = 0;           // bytes of UDP payload
    CollectorSettings to;
    /// One sentence and, behind "; ", the remedy.
    [[nodiscard]] std::string Text() const;
    /// The line that shows the datagram on the collector's machine.
    [[nodiscard]] std::string Command() const;
};

/// The outcome's name in the model.
const char* Name(CollectorTested::Outcome outcome);

class CollectorTests {
public:
    /// What the network answers is waited for so long, and looked for so often.
    static constexpr std::chrono::milliseconds kWait{1000};
    static constexpr std::chrono::milliseconds kLookEvery{25};
    /// Tests at a time; more are refused.
    static constexpr std::size_t kMost = 16;
    /// Names whose numbers are kept; with more all begin anew, which collectors take for a restart.
    static constexpr std::size_t kMostNames = 4096;
    /// The sub-agent of the datagrams, and what is in its place if the agent has that number itself.
    static constexpr std::uint32_t kSubAgent = 0xFFFFFFFF;
    static constexpr std::uint32_t kOtherSubAgent = 0xFFFFFFFE;

    using Done = std::function<void(const CollectorTested&)>;

    CollectorTests(base::Timers& timers, std::uint32_t mark) : m_timers(timers), m_mark(mark) {}
    CollectorTests(const CollectorTests&) = delete;
    CollectorTests& operator=(const CollectorTests&) = delete;

    /// Sends the datagram; `agent` has the agent's address, sub-agent and uptime. Calls `done` once, from the
    /// loop, at once if the datagram can't be sent. False if too many tests run. Never waits.
    bool Start(const std::string& name, const CollectorSettings& settings, const SendSettings& send,
               const wire::DatagramHeader& agent, Done done);

private:
    struct Test {
        explicit Test(std::uint32_t mark) : socket({.mark = mark}) {}
        StreamSocket socket;
        CollectorTested result;
        std::chrono::steady_clock::time_point end;
        Done done;
        std::shared_ptr<void> timer;
    };
    using At = std::list<Test>::iterator;

    void Send(Test& test, const SendSettings& send);
    void Look(At at);
    void Wait(At at);

    base::Timers& m_timers;
    const std::uint32_t m_mark;
    std::map<std::string, std::uint32_t> m_sequences;  // of the newest datagram to each collector
    std::list<Test> m_tests;
};

}  // namespace manager

#endif
