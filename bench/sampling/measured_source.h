// SPDX-License-Identifier: Apache-2.0
// A source of packets in a thread of its own on the manager's core, without a manager: what sampling
// costs before the manager does anything with it.

#ifndef SAMPLING_MEASURED_SOURCE_H
#define SAMPLING_MEASURED_SOURCE_H

#include <pthread.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <thread>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

#include "base/timers.h"
#include "capture/packet_source.h"

namespace sampling {

class MeasuredSource {
public:
    using Make = std::function<std::unique_ptr<capture::PacketSource>(boost::asio::io_context&, base::Timers&,
                                                                      capture::SampleSink&)>;

    /// Throws capture::Unavailable.
    explicit MeasuredSource(const Make& make);
    MeasuredSource(const MeasuredSource&) = delete;
    MeasuredSource& operator=(const MeasuredSource&) = delete;
    ~MeasuredSource();

    /// Both return when that is in effect; the hook may go some milliseconds later.
    void Sample(std::uint32_t ifIndex, std::uint32_t rate);
    void StopSampling();

    struct Seen {
        std::uint64_t samples = 0;  // handed over
        std::uint64_t batches = 0;  // calls that did so
        std::uint64_t pool = 0;     // frames they were sampled from
        std::uint64_t drops = 0;    // sampled and lost
        double cpuSeconds = 0;      // of the thread
    };
    /// After all that waits has been handed over.
    Seen Read();

private:
    class CountingSink final : public capture::SampleSink {
    public:
        void OnSamples(std::span<const capture::Sample> samples) noexcept override;
        void OnDrained() noexcept override {}
        void OnRefused(std::uint32_t, const capture::Unavailable&) noexcept override {}
        std::uint64_t samples = 0, batches = 0;
        std::uint64_t look = 0;  // keeps the reading of the headers
    };

    void InLoop(const std::function<void()>& action);

    boost::asio::io_context m_loop;
    std::unique_ptr<base::Timers> m_timers;
    CountingSink m_sink;
    std::unique_ptr<capture::PacketSource> m_source;
    std::uint32_t m_ifIndex = 0;  // 0: not sampled
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> m_work;
    std::thread m_thread;
};

}  // namespace sampling

#endif
