// SPDX-License-Identifier: Apache-2.0
#include "capture/packet_socket/waker.h"

#include <sys/epoll.h>

#include <array>
#include <boost/asio/io_context.hpp>
#include <cerrno>
#include <system_error>
#include <utility>

#include "capture/packet_source.h"

namespace capture {

namespace {

constexpr std::size_t kAtOnce = 64;

epoll_event Once(std::uint32_t key)
{
    epoll_event event{};
    event.events = EPOLLIN | EPOLLONESHOT;
    event.data.u32 = key;
    return event;
}

[[noreturn]] void Fail(int error)
{
    throw Unavailable(Unavailable::Cause::kOther,
                      "a ring can't be waited for: " + std::generic_category().message(error));
}

int MakeEpoll()
{
    const int epoll = ::epoll_create1(EPOLL_CLOEXEC);
    if (epoll < 0) Fail(errno);
    return epoll;
}

}  // namespace

RingWaker::RingWaker(boost::asio::io_context& loop, Action action)
    : m_events(loop, MakeEpoll()), m_action(std::move(action))
{
    Wait();
}

void RingWaker::Add(int descriptor, std::uint32_t key)
{
    epoll_event event = Once(key);
    if (::epoll_ctl(m_events.native_handle(), EPOLL_CTL_ADD, descriptor, &event) != 0) Fail(errno);
}

void RingWaker::Rearm(int descriptor, std::uint32_t key)
{
    epoll_event event = Once(key);
    if (::epoll_ctl(m_events.native_handle(), EPOLL_CTL_MOD, descriptor, &event) != 0) Fail(errno);
}

void RingWaker::Remove(int descriptor)
{
    ::epoll_ctl(m_events.native_handle(), EPOLL_CTL_DEL, descriptor, nullptr);
}

void RingWaker::Wait()
{
    m_events.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                        [this](const boost::system::error_code& error) {
                            if (error) return;
                            try {
                                Take();
                            } catch (...) {
                                Wait();
                                throw;
                            }
                            Wait();
                        });
}

void RingWaker::Take()
{
    std::array<epoll_event, kAtOnce> events;
    std::array<std::uint32_t, kAtOnce> keys;
    int count = 0;
    do {
        count = ::epoll_wait(m_events.native_handle(), events.data(), static_cast<int>(events.size()), 0);
        for (int i = 0; i < count; ++i)
            keys.at(static_cast<std::size_t>(i)) = events.at(static_cast<std::size_t>(i)).data.u32;
        if (count > 0) m_action({keys.data(), static_cast<std::size_t>(count)});
    } while (count == static_cast<int>(kAtOnce));
}

}  // namespace capture
