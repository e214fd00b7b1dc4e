// SPDX-License-Identifier: Apache-2.0
#include "capture/packet_socket/socket.h"

#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#ifndef PACKET_IGNORE_OUTGOING
#define PACKET_IGNORE_OUTGOING 23
#endif
#ifndef PACKET_FANOUT_FLAG_IGNORE_OUTGOING
#define PACKET_FANOUT_FLAG_IGNORE_OUTGOING 0x4000
#endif

namespace capture {

namespace {

// The kernel hands over a block by age too, however little is in it: so many blocks bridge half a second
// without a read when packets come slowly.
constexpr std::size_t kUsualBlocks = 16;
constexpr std::size_t kMinBlocks = 4;
constexpr std::size_t kMinBlock = 4U << 10U;
constexpr std::size_t kMaxBlock = 64U << 10U;
// The kernel hands over a block that does not fill after this time. It runs a timer of this period for every
// ring, so this is as long as the first sample may take.
constexpr unsigned kBlockMilliseconds = 32;

[[noreturn]] void Fail(int error, const std::string& what)
{
    const std::string reason = what + ": " + std::generic_category().message(error);
    if (error == EPERM || error == EACCES)
        throw Unavailable(Unavailable::Cause::kPermission, reason + "; needs CAP_NET_RAW");
    const bool kernel =
        error == EAFNOSUPPORT || error == EPROTONOSUPPORT || error == ENOPROTOOPT || error == EINVAL;
    throw Unavailable(kernel ? Unavailable::Cause::kKernel : Unavailable::Cause::kOther, reason);
}

int Open(int type)
{
    // Protocol 0: nothing is delivered before Bind, which then has nothing to wait for.
    const int descriptor = socket(AF_PACKET, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0) Fail(errno, "packet socket");
    return descriptor;
}

std::size_t PageMultiple(std::size_t bytes)
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return std::max(page, bytes / page * page);
}

}  // namespace

PacketSocket::PacketSocket(int type) : m_descriptor(Open(type)) { Attach(RejectingFilter()); }

void PacketSocket::Attach(const RingFilter& filter)
{
    sock_fprog program{};
    program.len = static_cast<unsigned short>(filter.size());
    program.filter = const_cast<sock_filter*>(filter.data());
    if (setsockopt(Get(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0)
        Fail(errno, "filter of a packet socket");
}

void PacketSocket::DetachFilter()
{
    const int unused = 0;
    if (setsockopt(Get(), SOL_SOCKET, SO_DETACH_FILTER, &unused, sizeof unused) != 0 && errno != ENOENT)
        Fail(errno, "filter of a packet socket");
}

void PacketSocket::Bind(std::uint32_t ifIndex)
{
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(ifIndex);
    if (bind(Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        Fail(errno, "packet socket at interface " + std::to_string(ifIndex));
    // To bind to an interface that is down is no error: it may come up.
    const int error = TakeError();
    if (error != 0 && error != ENETDOWN) Fail(error, "packet socket at interface " + std::to_string(ifIndex));
}

bool PacketSocket::IgnoreOutgoing(bool ignore)
{
    const int value = ignore ? 1 : 0;
    return setsockopt(Get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, &value, sizeof value) == 0 && ignore;
}

const RingStatistics& PacketSocket::Statistics()
{
    tpacket_stats_v3 statistics{};
    socklen_t size = sizeof statistics;
    if (getsockopt(Get(), SOL_PACKET, PACKET_STATISTICS, &statistics, &size) == 0) {
        m_statistics.passed += statistics.tp_packets;
        m_statistics.dropped += statistics.tp_drops;
    }
    return m_statistics;
}

int PacketSocket::TakeError()
{
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(Get(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

void PacketSocket::SetOption(int option, const void* value, std::size_t size, const std::string& what)
{
    if (setsockopt(Get(), SOL_PACKET, option, value, static_cast<socklen_t>(size)) != 0) Fail(errno, what);
}

// SOCK_DGRAM: the kernel need not step back to the link header of what it drops anyway.
CountingSocket::CountingSocket() : PacketSocket(SOCK_DGRAM)
{
    const int smallest = 0;
    if (setsockopt(Get(), SOL_SOCKET, SO_RCVBUF, &smallest, sizeof smallest) != 0)
        Fail(errno, "buffer of a packet socket");
}

SamplingSocket::SamplingSocket(std::size_t bytes) : PacketSocket(SOCK_RAW)
{
    const int version = TPACKET_V3;
    SetOption(PACKET_VERSION, &version, sizeof version, "TPACKET_V3");
    // Some kernels refuse it together with this ring: segments are unknown then.
    const int segments = 1;
    m_tellsSegments = setsockopt(Get(), SOL_PACKET, PACKET_VNET_HDR, &segments, sizeof segments) == 0;
    m_area.blockSize = PageMultiple(std::clamp(bytes / kUsualBlocks, kMinBlock, kMaxBlock));
    m_area.blocks = std::max(kMinBlocks, bytes / m_area.blockSize);
}

void SamplingSocket::MakeRing()
{
    if (std::exchange(m_hasRing, true)) return;
    tpacket_req3 request{};
    request.tp_block_size = static_cast<unsigned>(m_area.blockSize);
    request.tp_block_nr = static_cast<unsigned>(m_area.blocks);
    request.tp_frame_size = 1024;
    request.tp_frame_nr = static_cast<unsigned>(m_area.blockSize / 1024 * m_area.blocks);
    request.tp_retire_blk_tov = kBlockMilliseconds;
    SetOption(PACKET_RX_RING, &request, sizeof request, "ring of a packet socket");
}

bool SamplingSocket::Map()
{
    if (m_area.memory != nullptr) return true;
    const std::size_t bytes = m_area.blockSize * m_area.blocks;
    void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, Get(), 0);
    if (memory == MAP_FAILED) return false;
    m_area.memory = static_cast<std::byte*>(memory);
    return true;
}

SamplingSocket::~SamplingSocket()
{
    if (m_area.memory != nullptr) munmap(m_area.memory, m_area.blockSize * m_area.blocks);
}

std::optional<RingGroup> MakeGroup(PacketSocket& first, bool ignoreOutgoing)
{
    constexpr int kFlags = 16;  // how far type and flags are shifted; below them is the group's number
    constexpr int kNumber = 0xffff;
    const int type = PACKET_FANOUT_CBPF | (ignoreOutgoing ? PACKET_FANOUT_FLAG_IGNORE_OUTGOING : 0);
    // The kernel chooses a free number.
    int group = (type | PACKET_FANOUT_FLAG_UNIQUEID) << kFlags;
    socklen_t size = sizeof group;
    if (setsockopt(first.Get(), SOL_PACKET, PACKET_FANOUT, &group, size) != 0 ||
        getsockopt(first.Get(), SOL_PACKET, PACKET_FANOUT, &group, &size) != 0)
        return std::nullopt;
    return (group & kNumber) | type << kFlags;
}

bool JoinGroup(PacketSocket& socket, RingGroup group)
{
    return setsockopt(socket.Get(), SOL_PACKET, PACKET_FANOUT, &group, sizeof group) == 0;
}

bool Divide(PacketSocket& member, const RingFilter& program)
{
    sock_fprog given{};
    given.len = static_cast<unsigned short>(program.size());
    given.filter = const_cast<sock_filter*>(program.data());
    return setsockopt(member.Get(), SOL_PACKET, PACKET_FANOUT_DATA, &given, sizeof given) == 0;
}

}  // namespace capture
