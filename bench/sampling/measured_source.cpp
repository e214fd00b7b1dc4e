// SPDX-License-Identifier: Apache-2.0
// A source of packets in a thread of its own (see the header).

#include "sampling/measured_source.h"

#include <chrono>
#include <ctime>
#include <exception>
#include <future>

#include <boost/asio/post.hpp>

#include "sampling/forwarding_path.h"

namespace sampling {

void MeasuredSource::CountingSink::OnSamples(std::span<const capture::Sample> batch) noexcept
{
    for (const auto& sample : batch) {
        samples += sample.count;
        // The encoder reads the beginning of a sample.
        if (!sample.header.empty()) look += std::to_integer<std::uint64_t>(sample.header.front());
    }
    ++batches;
}

MeasuredSource::MeasuredSource(const Make& make)
    : m_timers(base::MakeTimers(m_loop)),
      m_source(make(m_loop, *m_timers, m_sink)),
      m_work(m_loop.get_executor()),
      m_thread([this] {
          support::Pin(0, kManagerCore);
          m_loop.run();
      })
{
}

MeasuredSource::~MeasuredSource()
{
    m_loop.stop();
    m_thread.join();
}

void MeasuredSource::InLoop(const std::function<void()>& action)
{
    std::promise<void> done;
    boost::asio::post(m_loop, [&] {
        try {
            action();
            done.set_value();
        } catch (...) {
            done.set_exception(std::current_exception());
        }
    });
    done.get_future().get();
}

void MeasuredSource::Sample(std::uint32_t ifIndex, std::uint32_t rate)
{
    InLoop([&] {
        m_source->Add(ifIndex, {.rate = rate, .headerSize = 128, .ingress = true, .egress = false});
        m_ifIndex = ifIndex;
    });
    bool sampled = false;
    while (!sampled) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        InLoop([&] { sampled = m_source->Sampled(ifIndex); });
    }
}

void MeasuredSource::StopSampling()
{
    if (m_ifIndex == 0) return;
    InLoop([&] { m_source->Remove(m_ifIndex); });
    m_ifIndex = 0;
}

MeasuredSource::Seen MeasuredSource::Read()
{
    Seen seen;
    InLoop([&] {
        m_source->Drain();
        const auto counts = m_ifIndex == 0 ? capture::Counts{} : m_source->Read(m_ifIndex);
        timespec time{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        seen = {m_sink.samples, m_sink.batches, counts.pool, counts.drops,
                static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9};
    });
    return seen;
}

}  // namespace sampling
