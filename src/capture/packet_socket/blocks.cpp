// SPDX-License-Identifier: Apache-2.0
#include "capture/packet_socket/blocks.h"

#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <thread>

namespace capture {

namespace {

// What PACKET_VNET_HDR puts before a packet, host byte order (struct virtio_net_hdr, whose header C++
// can't read).
struct SegmentHeader {
    std::uint8_t flags;
    std::uint8_t type;
    std::uint16_t headerLength;
    std::uint16_t segmentSize;
    std::uint16_t checksumStart;
    std::uint16_t checksumOffset;
};
constexpr unsigned kNeedsChecksum = 1;
constexpr unsigned kTcp4 = 1;
constexpr unsigned kTcp6 = 4;
constexpr unsigned kEcn = 0x80;

// What stands before a packet in any case.
constexpr std::size_t kHeaders = TPACKET_ALIGN(sizeof(tpacket3_hdr)) + sizeof(sockaddr_ll);

// How often the thread yields to another CPU that is still writing a packet when the filter has been closed.
constexpr int kUnfinishedTries = 10000;

std::uint32_t Status(const std::byte* packet)
{
    const auto* header = reinterpret_cast<const tpacket3_hdr*>(packet);
    return __atomic_load_n(&header->tp_status, __ATOMIC_ACQUIRE);
}

// How the packet is cut on the wire. The kernel says where the transport header begins only with a
// checksum that is still to be made, which is so for what it holds as segments.
void SetSegments(Sample& sample, const SegmentHeader& segments)
{
    const unsigned type = segments.type & ~kEcn;
    if (type == 0 || segments.segmentSize == 0 || (segments.flags & kNeedsChecksum) == 0) return;
    std::size_t headers = segments.checksumStart;
    if (type == kTcp4 || type == kTcp6) {
        constexpr std::size_t kDataOffset = 12;
        if (headers + kDataOffset >= sample.header.size()) return;
        headers += std::to_integer<std::size_t>(sample.header[headers + kDataOffset] >> 4) * 4;
    } else {
        constexpr std::size_t kUdpHeader = 8;
        headers += kUdpHeader;
    }
    if (sample.length <= headers) return;
    const std::size_t count = (sample.length - headers + segments.segmentSize - 1) / segments.segmentSize;
    sample.segments =
        static_cast<std::uint16_t>(std::min<std::size_t>(count, std::numeric_limits<std::uint16_t>::max()));
    sample.segmentSize = segments.segmentSize;
}

void SetTag(Sample& sample, const tpacket3_hdr& header, std::uint32_t status)
{
    if ((status & TP_STATUS_VLAN_VALID) == 0) return;
    sample.tagControl = static_cast<std::uint16_t>(header.hv1.tp_vlan_tci);
    sample.tagProtocol =
        (status & TP_STATUS_VLAN_TPID_VALID) != 0 ? header.hv1.tp_vlan_tpid : std::uint16_t{ETH_P_8021Q};
}

}  // namespace

std::size_t RingBlocks::Waiting() const
{
    std::size_t waiting = 0;
    if (m_area.memory == nullptr) return 0;
    for (std::size_t at = m_next; waiting < m_area.blocks; at = (at + 1) % m_area.blocks, ++waiting) {
        const auto* block = reinterpret_cast<const tpacket_block_desc*>(At(at));
        if ((__atomic_load_n(&block->hdr.bh1.block_status, __ATOMIC_ACQUIRE) & TP_STATUS_USER) == 0) break;
    }
    return waiting;
}

void RingBlocks::Take(std::vector<Sample>& samples) const
{
    Walk(samples, std::numeric_limits<std::uint64_t>::max());
}

void RingBlocks::Release()
{
    auto* block = reinterpret_cast<tpacket_block_desc*>(m_area.memory + m_next * m_area.blockSize);
    __atomic_store_n(&block->hdr.bh1.block_status, TP_STATUS_KERNEL, __ATOMIC_RELEASE);
    m_next = (m_next + 1) % m_area.blocks;
}

void RingBlocks::TakeUnfinished(std::vector<Sample>& samples, std::uint64_t most) const
{
    const auto* block = reinterpret_cast<const tpacket_block_desc*>(Block());
    const std::uint32_t count = __atomic_load_n(&block->hdr.bh1.num_pkts, __ATOMIC_ACQUIRE);
    std::size_t at = block->hdr.bh1.offset_to_first_pkt;
    for (std::uint32_t packet = 0; packet < count && IsInside(at); ++packet) {
        for (int tries = 0; (Status(Block() + at) & TP_STATUS_USER) == 0 && tries < kUnfinishedTries; ++tries)
            std::this_thread::yield();
        const std::uint32_t next = HeaderAt(at).tp_next_offset;
        if (next == 0) break;
        at += next;
    }
    Walk(samples, most);
}

bool RingBlocks::IsInside(std::size_t at) const
{
    return at % alignof(tpacket3_hdr) == 0 && at + kHeaders <= m_area.blockSize;
}

const tpacket3_hdr& RingBlocks::HeaderAt(std::size_t at) const
{
    return *reinterpret_cast<const tpacket3_hdr*>(Block() + at);
}

void RingBlocks::Walk(std::vector<Sample>& samples, std::uint64_t most) const
{
    const auto& head = reinterpret_cast<const tpacket_block_desc*>(Block())->hdr.bh1;
    const std::uint32_t count = head.num_pkts;
    std::size_t at = head.offset_to_first_pkt;
    for (std::uint32_t packet = 0; packet < count && most > 0 && IsInside(at); ++packet) {
        if (TakePacket(at, samples)) --most;
        const std::uint32_t next = HeaderAt(at).tp_next_offset;
        if (next == 0) break;
        at += next;
    }
}

bool RingBlocks::TakePacket(std::size_t at, std::vector<Sample>& samples) const
{
    const tpacket3_hdr& header = HeaderAt(at);
    const std::uint32_t status = Status(Block() + at);
    // Not a packet: the kernel gave it up (segments that it can't describe) and counted it as dropped.
    if ((status & TP_STATUS_USER) == 0) return false;
    const std::size_t before = kHeaders + (m_tellsSegments ? sizeof(SegmentHeader) : 0);
    const std::size_t data = at + header.tp_mac;
    if (header.tp_mac < before || data + header.tp_snaplen > m_area.blockSize) return false;
    Sample& sample = samples.emplace_back();
    const auto& address =
        *reinterpret_cast<const sockaddr_ll*>(Block() + at + TPACKET_ALIGN(sizeof(tpacket3_hdr)));
    sample.egress = address.sll_pkttype == PACKET_OUTGOING;
    if (sample.egress) sample.origin = kOriginUnknown;
    sample.etherType = ntohs(address.sll_protocol);
    sample.length = header.tp_len;
    sample.header = {Block() + data, std::min<std::size_t>(header.tp_snaplen, kMaxHeader)};
    SetTag(sample, header, status);
    if (m_tellsSegments) {
        SegmentHeader segments{};
        std::memcpy(&segments, Block() + data - sizeof segments, sizeof segments);
        SetSegments(sample, segments);
    }
    return true;
}

}  // namespace capture
