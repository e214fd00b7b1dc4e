// SPDX-License-Identifier: Apache-2.0
// Traffic in great number (see the header).

#include "support/traffic.h"

#include <linux/if_packet.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <stdexcept>
#include <system_error>

namespace support {
namespace {

/// Frames given to the kernel at once: enough that the system call itself no longer counts.
constexpr std::size_t kBatch = 64;

[[noreturn]] void Fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

double ThreadSeconds()
{
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace

struct Traffic::Batch {
    std::vector<Bytes> frames;
    std::vector<iovec> parts;
    std::vector<mmsghdr> messages;
};

Traffic::Traffic(const std::string& device, const std::vector<Bytes>& frames)
    : m_socket(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)), m_batch(std::make_unique<Batch>())
{
    if (frames.empty()) throw std::invalid_argument("traffic needs a frame");
    const int one = 1;
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(Network::Index(device));
    if (m_socket < 0 || ::setsockopt(m_socket, SOL_PACKET, PACKET_QDISC_BYPASS, &one, sizeof one) != 0 ||
        ::bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        if (m_socket >= 0) ::close(m_socket);
        errno = error;
        Fail("traffic on " + device);
    }
    m_batch->frames = frames;
    const std::size_t count = std::max(frames.size(), kBatch);
    m_batch->parts.resize(count);
    m_batch->messages.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        Bytes& frame = m_batch->frames[i % frames.size()];
        m_batch->parts[i] = {frame.data(), frame.size()};
        m_batch->messages[i].msg_hdr.msg_iov = &m_batch->parts[i];
        m_batch->messages[i].msg_hdr.msg_iovlen = 1;
    }
}

Traffic::~Traffic() { ::close(m_socket); }

template <typename Over>
Sent Traffic::SendWhile(std::uint64_t rate, Over over)
{
    using Clock = std::chrono::steady_clock;
    // At a rate: two thousand small bursts a second, or single frames.
    const std::size_t burst = rate == 0 ? kBatch : std::clamp<std::size_t>(rate / 2000, 1, kBatch);
    Sent sent;
    std::size_t next = 0;
    const double cpu = ThreadSeconds();
    const auto start = Clock::now();
    while (!over()) {
        if (rate != 0)
            std::this_thread::sleep_until(start +
                                          std::chrono::nanoseconds(sent.frames * 1'000'000'000ULL / rate));
        const std::size_t count = std::min(burst, m_batch->messages.size() - next);
        const int taken = ::sendmmsg(m_socket, &m_batch->messages[next], static_cast<unsigned>(count), 0);
        if (taken < 0 && errno != ENOBUFS && errno != EINTR) Fail("traffic");
        if (taken > 0) sent.frames += static_cast<std::uint64_t>(taken);
        next = (next + count) % m_batch->messages.size();
    }
    sent.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    sent.cpuSeconds = ThreadSeconds() - cpu;
    return sent;
}

Sent Traffic::SendFor(std::chrono::milliseconds time, std::uint64_t rate)
{
    const auto end = std::chrono::steady_clock::now() + time;
    return SendWhile(rate, [end] { return std::chrono::steady_clock::now() >= end; });
}

Sent Traffic::SendUntil(const std::atomic<bool>& stop, std::uint64_t rate)
{
    return SendWhile(rate, [&stop] { return stop.load(std::memory_order_relaxed); });
}

BackgroundTraffic::BackgroundTraffic(const std::string& device, const std::vector<Bytes>& frames,
                                     std::uint64_t rate, int core)
    : m_traffic(device, frames), m_thread([this, rate, core] {
          try {
              if (core >= 0) Pin(0, core);
              m_sent = m_traffic.SendUntil(m_stop, rate);
          } catch (...) {
              m_error = std::current_exception();
          }
      })
{
}

BackgroundTraffic::~BackgroundTraffic()
{
    m_stop = true;
    if (m_thread.joinable()) m_thread.join();
}

Sent BackgroundTraffic::Stop()
{
    m_stop = true;
    if (m_thread.joinable()) m_thread.join();
    if (m_error) std::rethrow_exception(m_error);
    return m_sent;
}

std::vector<Bytes> UdpFlows(std::size_t count, const FrameOptions& options)
{
    std::vector<Bytes> frames;
    for (std::size_t i = 0; i < count; ++i) {
        FrameOptions flow = options;
        flow.source = "198.18.0." + std::to_string(i % 250 + 1);
        flow.destination = "198.19.0." + std::to_string(i % 250 + 1);
        flow.sourcePort = static_cast<std::uint16_t>(options.sourcePort + i);
        frames.push_back(UdpFrame(flow));
    }
    return frames;
}

void Pin(int id, int core)
{
    cpu_set_t only;
    CPU_ZERO(&only);
    CPU_SET(static_cast<std::size_t>(core), &only);
    if (::sched_setaffinity(id, sizeof only, &only) != 0) Fail("CPU " + std::to_string(core));
}

}  // namespace support
