// SPDX-License-Identifier: Apache-2.0
// Polls the counters of the interfaces that have an interval and a counter collector, and sends them.
// The first time falls at random into the first interval, then they are evenly spaced. All that is due
// at a time is read together, beside the loop: the kernel's answer may have to wait for others. What falls
// due while it waits is read together when it has come.

#ifndef MANAGER_EXPORT_POLLER_H
#define MANAGER_EXPORT_POLLER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "manager/service/status.h"
#include "wire/sample.h"

namespace base {
class Timers;
class Worker;
}  // namespace base
namespace net {
class CounterReader;
class Links;
}  // namespace net

namespace manager {

class Stream;

class Poller {
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;
    using WallClock = std::function<std::chrono::system_clock::time_point()>;
    /// A number below its argument, at random: the start of the first interval, in milliseconds.
    using Random = std::function<std::uint32_t(std::uint32_t)>;
    /// Sends what the streams hold: Exporter::Flush. Called once after all that was due at a time.
    using Flush = std::function<void()>;
    // While the poller calls one of these functions, the links or a stream, none of them may call the poller:
    // it is walking what is due. Between its calls all may.

    struct Target {
        std::uint32_t ifIndex = 0;
        std::uint16_t interval = 0;  // seconds; 0: not polled
        /// Its counter collectors: read whenever its counters are sent, so the list must outlive its place
        /// here, and Set is called after it has changed. Empty: not polled.
        const std::vector<Stream*>* streams = nullptr;
    };

    /// Timers, worker and links must outlive it. The worker may use the reader for longer.
    Poller(base::Timers& timers, base::Worker& worker, std::shared_ptr<net::CounterReader> reader,
           const net::Links& links, Flush flush, Clock clock, WallClock wallClock, Random random);
    Poller(const Poller&) = delete;
    Poller& operator=(const Poller&) = delete;
    ~Poller();

    /// Begins or changes the polling of a kernel interface, `key` being its name in the configuration and the
    /// port name that is sent. A changed interval begins anew; anything else leaves its rhythm and its
    /// sequence as they are.
    void Set(const std::string& key, const Target& target);
    /// Its kernel interface has gone, or belongs to another name. Rhythm and counts go; the sequence of the
    /// data source continues if the same kernel interface is polled again. For one that is only not polled
    /// for a while, for lack of collectors, the caller calls Set without streams instead.
    void Remove(const std::string& key);
    /// A kernel interface is gone for good: its sequence is forgotten.
    void Forget(std::uint32_t ifIndex);

    /// Sequences begin anew, and samples are encoded like this from here on.
    void Restart(wire::Encoding encoding);

    /// Fills countersSent and lastCounters; 0 and empty if `key` is not set.
    void Fill(const std::string& key, InterfaceStatus& status) const;

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace manager

#endif
