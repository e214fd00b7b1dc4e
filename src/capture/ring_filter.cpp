#include "capture/ring_filter.h"

#include <linux/if_packet.h>

#include <algorithm>
#include <cstddef>
#include <limits>

namespace capture {

namespace {

// A jump to "reject" whose distance is known at the end; no program has as many instructions.
constexpr std::uint8_t kReject = 255;

sock_filter Load(std::uint32_t ancillary)
{
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(SKF_AD_OFF) + ancillary);
}

sock_filter Return(std::uint32_t bytes) { return BPF_STMT(BPF_RET | BPF_K, bytes); }

sock_filter Jump(std::uint16_t condition, std::uint32_t value, std::uint8_t then, std::uint8_t otherwise)
{
    return BPF_JUMP(static_cast<std::uint16_t>(BPF_JMP | condition | BPF_K), value, then, otherwise);
}

// Goes on for one packet in `rate`. 2^64 / rate is compared with a random number of 64 bits: its upper half
// decides alone unless the halves are equal, so almost every packet costs one random number.
void AppendDraw(RingFilter& filter, std::uint32_t rate)
{
    if (rate <= 1) return;
    // floor(2^64 / rate) without a number of 65 bits: 2^64 - 1 is the same but for powers of two.
    constexpr std::uint64_t kAll = std::numeric_limits<std::uint64_t>::max();
    const std::uint64_t bound = kAll / rate + (kAll % rate == rate - 1 ? 1 : 0);
    const auto upper = static_cast<std::uint32_t>(bound >> 32);
    const auto lower = static_cast<std::uint32_t>(bound);
    filter.push_back(Load(SKF_AD_RANDOM));
    if (lower == 0) {
        filter.push_back(Jump(BPF_JGE, upper, kReject, 0));
        return;
    }
    filter.push_back(Jump(BPF_JGT, upper, kReject, 0));
    filter.push_back(Jump(BPF_JEQ, upper, 0, 2));
    filter.push_back(Load(SKF_AD_RANDOM));
    filter.push_back(Jump(BPF_JGE, lower, kReject, 0));
}

void AppendChoice(RingFilter& filter, const Settings& settings, std::uint32_t ownMark, bool outgoingIgnored)
{
    if (ownMark != 0) {
        filter.push_back(Load(SKF_AD_MARK));
        filter.push_back(Jump(BPF_JEQ, ownMark, kReject, 0));
    }
    if (settings.ingress == settings.egress || (settings.ingress && outgoingIgnored)) return;
    filter.push_back(Load(SKF_AD_PKTTYPE));
    filter.push_back(settings.ingress ? Jump(BPF_JEQ, PACKET_OUTGOING, kReject, 0)
                                      : Jump(BPF_JEQ, PACKET_OUTGOING, 0, kReject));
}

void End(RingFilter& filter, std::uint32_t bytes)
{
    filter.push_back(Return(bytes));
    filter.push_back(Return(0));
    const std::size_t reject = filter.size() - 1;
    for (std::size_t at = 0; at < reject; ++at) {
        if (BPF_CLASS(filter[at].code) != BPF_JMP) continue;
        const auto distance = static_cast<std::uint8_t>(reject - at - 1);
        if (filter[at].jt == kReject) filter[at].jt = distance;
        if (filter[at].jf == kReject) filter[at].jf = distance;
    }
}

}  // namespace

RingFilter RejectingFilter() { return {Return(0)}; }

RingFilter CountingFilter(const Settings& settings, std::uint32_t ownMark, bool outgoingIgnored)
{
    if (!settings.ingress && !settings.egress) return RejectingFilter();
    RingFilter filter;
    AppendChoice(filter, settings, ownMark, outgoingIgnored);
    End(filter, 1);
    return filter;
}

RingFilter DrawingFilter(const Settings& settings, std::uint32_t ownMark, bool outgoingIgnored)
{
    if (!settings.ingress && !settings.egress) return RejectingFilter();
    RingFilter filter;
    AppendDraw(filter, settings.rate);
    AppendChoice(filter, settings, ownMark, outgoingIgnored);
    End(filter, SnapLength(settings));
    return filter;
}

std::uint32_t SnapLength(const Settings& settings)
{
    const std::size_t wanted = std::min<std::size_t>(settings.headerSize, kMostHeader);
    return static_cast<std::uint32_t>(std::max(wanted, kLeastHeader));
}

}  // namespace capture
