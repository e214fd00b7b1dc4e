// SPDX-License-Identifier: Apache-2.0
#include "capture/ebpf/waker.h"

#include <cerrno>
#include <utility>

#include <sys/epoll.h>
#include <boost/asio/io_context.hpp>

#include "capture/ebpf/program.h"
#include "capture/ebpf/ring.h"

namespace capture {
EbpfWaker::EbpfWaker(boost::asio::io_context& loop, base::Timers& timers, BpfRingBuffer& ring,
                     volatile WakeWords& words, std::function<std::size_t()> look)
    : m_ring(ring),
      m_words(words),
      m_look(std::move(look)),
      m_wakes(loop),
      m_alarm(timers.MakeAlarm([this] { OnTime(); }))
{
    const int epoll = ::epoll_create1(EPOLL_CLOEXEC);
    if (epoll < 0) throw Refusal("the ring of records can't be waited for", errno);
    m_wakes.assign(epoll);
    epoll_event event{};
    event.events = EPOLLIN | EPOLLET;
    if (::epoll_ctl(epoll, EPOLL_CTL_ADD, ring.File(), &event) != 0)
        throw Refusal("the ring of records can't be waited for", errno);
    Wait();
}

void EbpfWaker::Continue(std::size_t found)
{
    m_last = false;
    const auto passed = static_cast<std::size_t>(m_rhythm.count());
    const bool few = found * static_cast<std::size_t>(kSeldom.count()) <= kFew * passed;
    m_rhythm = few ? kSeldom : kOften;
    if (few) m_ring.Shrink();
    m_alarm->Set(m_rhythm);
}

void EbpfWaker::Wait()
{
    m_wakes.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                       [this](const boost::system::error_code& error) {
                           if (!error) OnWake();
                       });
}

void EbpfWaker::OnWake()
{
    epoll_event event{};
    (void)::epoll_wait(m_wakes.native_handle(), &event, 1, 0);  // takes the edge
    Continue(m_look());
    Wait();
}

void EbpfWaker::OnTime()
{
    if (const std::size_t found = m_look(); found != 0) return Continue(found);
    m_ring.Shrink();
    if (m_last) return;  // to sleep; the program has been asked to wake us
    // A record that comes between the look above and this line would wait for the next one. So look again,
    // and a last time when all that was under way then must have arrived.
    __atomic_store_n(&m_words.waiting, 1U, __ATOMIC_SEQ_CST);
    m_last = m_look() == 0;
    m_alarm->Set(m_rhythm);
}

}  // namespace capture
