#include "capture/ring_socket.h"

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

namespace capture {

namespace {

// A block is handed over by age too, however little is in it: their number is for how long nobody needs
// to read when packets come slowly (0.8 s), their size for how many samples one waking-up brings.
constexpr std::size_t kUsualBlocks = 16;
constexpr std::size_t kLeastBlocks = 4;
constexpr std::size_t kLeastBlock = 8U << 10U;
constexpr std::size_t kMostBlock = 256U << 10U;
// A block that does not fill is handed over after so long: what a sample waits at most.
constexpr unsigned kBlockMilliseconds = 50;

[[noreturn]] void Fail(int error, const std::string& what)
{
    const std::string reason = what + ": " + std::generic_category().message(error);
    if (error == EPERM || error == EACCES)
        throw Unavailable(Unavailable::Cause::kPermission, reason + "; needs CAP_NET_RAW");
    const bool kernel =
        error == EAFNOSUPPORT || error == EPROTONOSUPPORT || error == ENOPROTOOPT || error == EINVAL;
    throw Unavailable(kernel ? Unavailable::Cause::kKernel : Unavailable::Cause::kOther, reason);
}

int Open()
{
    // Protocol 0: nothing is delivered before Bind.
    const int descriptor = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0) Fail(errno, "packet socket");
    return descriptor;
}

std::size_t PageMultiple(std::size_t bytes)
{
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return std::max(page, bytes / page * page);
}

void* Map(int descriptor, std::size_t bytes)
{
    void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (memory == MAP_FAILED) Fail(errno, "ring of a packet socket");
    return memory;
}

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept
{
    if (this != &other) {
        if (m_descriptor >= 0) close(m_descriptor);
        m_descriptor = other.Release();
    }
    return *this;
}

Descriptor::~Descriptor()
{
    if (m_descriptor >= 0) close(m_descriptor);
}

int Descriptor::Release() { return std::exchange(m_descriptor, -1); }

PacketSocket::PacketSocket() : m_descriptor(Open()) { Attach(RejectingFilter()); }

void PacketSocket::Attach(const RingFilter& filter)
{
    sock_fprog program{};
    program.len = static_cast<unsigned short>(filter.size());
    program.filter = const_cast<sock_filter*>(filter.data());
    if (setsockopt(Get(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0)
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
    // An interface that is down is one that is bound to: it may come up.
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

CountingSocket::CountingSocket()
{
    const int version = TPACKET_V2;
    SetOption(PACKET_VERSION, &version, sizeof version, "TPACKET_V2");
    tpacket_req request{};
    request.tp_block_size = static_cast<unsigned>(PageMultiple(0));
    request.tp_block_nr = 1;
    request.tp_frame_size = request.tp_block_size / 2;
    request.tp_frame_nr = 2;
    SetOption(PACKET_RX_RING, &request, sizeof request, "ring of the counting packet socket");
    auto* memory = static_cast<std::byte*>(Map(Get(), request.tp_block_size));
    for (unsigned frame = 0; frame < request.tp_frame_nr; ++frame) {
        auto* header = reinterpret_cast<tpacket2_hdr*>(memory + frame * request.tp_frame_size);
        __atomic_store_n(&header->tp_status, TP_STATUS_USER, __ATOMIC_RELEASE);
    }
    munmap(memory, request.tp_block_size);
}

SamplingSocket::SamplingSocket(std::size_t bytes)
{
    const int version = TPACKET_V3;
    SetOption(PACKET_VERSION, &version, sizeof version, "TPACKET_V3");
    // Refused by some kernels together with this ring: segments are not told then.
    const int segments = 1;
    m_tellsSegments = setsockopt(Get(), SOL_PACKET, PACKET_VNET_HDR, &segments, sizeof segments) == 0;
    m_area.blockSize = PageMultiple(std::clamp(bytes / kUsualBlocks, kLeastBlock, kMostBlock));
    m_area.blocks = std::max(kLeastBlocks, bytes / m_area.blockSize);
    tpacket_req3 request{};
    request.tp_block_size = static_cast<unsigned>(m_area.blockSize);
    request.tp_block_nr = static_cast<unsigned>(m_area.blocks);
    request.tp_frame_size = 1024;
    request.tp_frame_nr = static_cast<unsigned>(m_area.blockSize / 1024 * m_area.blocks);
    request.tp_retire_blk_tov = kBlockMilliseconds;
    SetOption(PACKET_RX_RING, &request, sizeof request, "ring of a packet socket");
    m_area.memory = static_cast<std::byte*>(Map(Get(), m_area.blockSize * m_area.blocks));
}

SamplingSocket::SamplingSocket(SamplingSocket&& other) noexcept
    : PacketSocket(std::move(other)),
      m_area(std::exchange(other.m_area, {})),
      m_tellsSegments(other.m_tellsSegments)
{
}

SamplingSocket::~SamplingSocket()
{
    if (m_area.memory != nullptr) munmap(m_area.memory, m_area.blockSize * m_area.blocks);
}

}  // namespace capture
