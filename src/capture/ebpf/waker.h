// SPDX-License-Identifier: Apache-2.0
// When to look into a ring, and when it may take less memory. The program wakes the process for the first
// record after a time of silence and when the ring fills; in between a timer looks. So silence costs nothing,
// a lone packet arrives at once, and a stream of packets costs four wake-ups a second, or ten if it is a
// broad one: what a look costs is shared by more samples then. Used by what reads a ring of a program in the
// kernel.

#ifndef CAPTURE_EBPF_WAKER_H
#define CAPTURE_EBPF_WAKER_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

#include <boost/asio/posix/stream_descriptor.hpp>

#include "base/timers.h"
#include "capture/bpf/wake.h"

namespace capture {

class BpfRingBuffer;

class EbpfWaker {
public:
    /// Between two looks while packets come: kSeldom while no more than kFew bytes come in that time.
    static constexpr std::chrono::milliseconds kOften{98}, kSeldom{245};
    static constexpr std::size_t kFew = std::size_t{64} * 1024;

    /// `look` drains the ring and returns how many bytes were in it; the ring must outlive it. Throws
    /// Unavailable.
    EbpfWaker(boost::asio::io_context& loop, base::Timers& timers, BpfRingBuffer& ring,
              volatile WakeWords& words, std::function<std::size_t()> look);
    EbpfWaker(const EbpfWaker&) = delete;
    EbpfWaker& operator=(const EbpfWaker&) = delete;

    /// To be called after a look of another's that found so many bytes: the loop hears of no wake-up whose
    /// records are taken, and the program sends no other until it is asked to.
    void Continue(std::size_t found);

private:
    void Wait();
    void OnWake();
    void OnTime();

    BpfRingBuffer& m_ring;
    volatile WakeWords& m_words;
    std::function<std::size_t()> m_look;
    // An epoll of the ring alone, edge-triggered: the loop must hear of wake-ups, not of data that wait.
    boost::asio::posix::stream_descriptor m_wakes;
    bool m_last = false;  // one more look before the process sleeps
    std::chrono::milliseconds m_rhythm = kOften;
    const std::unique_ptr<base::Alarm> m_alarm;
};

}  // namespace capture

#endif
