// SPDX-License-Identifier: Apache-2.0
// Another process with an eBPF source, as a second manager would be. For tests in a network of their own.

#ifndef TESTS_UNIT_CAPTURE_EBPF_OTHER_PROCESS_H
#define TESTS_UNIT_CAPTURE_EBPF_OTHER_PROCESS_H

#include <csignal>
#include <cstdint>
#include <functional>
#include <stdexcept>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "capture/ebpf_world.h"

/// Does as it is told, and then nothing until it is killed. Returns from its making when that is done.
class OtherProcess {
public:
    explicit OtherProcess(const std::function<void()>& todo)
    {
        int ends[2] = {};
        if (::pipe(ends) != 0) throw std::runtime_error("pipe");
        m_child = ::fork();
        if (m_child == 0) {
            try {
                todo();
                Rest(ends[1]);
            } catch (...) {
                ::_exit(1);
            }
        }
        Await(ends);
    }
    /// With a source at the interface.
    OtherProcess(capture::EbpfHook hook, std::uint32_t ifIndex)
        : OtherProcess([=] {
              // Never destroyed.
              auto& loop = *new boost::asio::io_context;
              auto& timers = *new support::ManualTimers;
              auto& sink = *new KeepingSink;
              auto* source = capture::MakeEbpfSource(loop, timers, sink, {}, hook).release();
              source->Add(ifIndex, {.rate = 1, .headerSize = 128});
              while (!source->Sampled(ifIndex)) loop.run_one();
          })
    {
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;
    ~OtherProcess() { Kill(); }

    [[nodiscard]] pid_t Pid() const { return m_child; }
    void Kill()
    {
        if (m_child < 0) return;
        ::kill(m_child, SIGKILL);
        ::waitpid(m_child, nullptr, 0);
        m_child = -1;
    }

private:
    [[noreturn]] static void Rest(int ready)
    {
        (void)!::write(ready, "x", 1);
        while (true) ::pause();
    }
    static void Await(const int (&ends)[2])
    {
        ::close(ends[1]);
        char ready = 0;
        EXPECT_EQ(::read(ends[0], &ready, 1), 1) << "the other process is ready";
        ::close(ends[0]);
    }

    pid_t m_child = -1;
};

#endif
