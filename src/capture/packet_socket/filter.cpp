// SPDX-License-Identifier: Apache-2.0
#include "capture/packet_socket/filter.h"

#include <linux/if_packet.h>

#include <algorithm>
#include <cstddef>
#include <limits>

namespace capture {

namespace {

// Jumps to the ends of a program, whose distance is known at the end; no program has as many instructions.
constexpr std::uint8_t kOutOfScope = 255;
constexpr std::uint8_t kNotSampled = 254;

sock_filter Load(std::uint32_t ancillary)
{
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(SKF_AD_OFF) + ancillary);
}

sock_filter Return(std::uint32_t value) { return BPF_STMT(BPF_RET | BPF_K, value); }

sock_filter Jump(std::uint16_t condition, std::uint32_t value, std::uint8_t then, std::uint8_t otherwise)
{
    return BPF_JUMP(static_cast<std::uint16_t>(BPF_JMP | condition | BPF_K), value, then, otherwise);
}

// Continues for one packet in `rate`. 2^64 / rate is compared with a random number of 64 bits: its upper half
// decides alone unless the halves are equal, so almost every packet costs one random number.
void AppendSampling(RingFilter& filter, std::uint32_t rate)
{
    if (rate <= 1) return;
    // floor(2^64 / rate) without a number of 65 bits: 2^64 - 1 is the same but for powers of two.
    constexpr std::uint64_t kAll = std::numeric_limits<std::uint64_t>::max();
    const std::uint64_t bound = kAll / rate + (kAll % rate == rate - 1 ? 1 : 0);
    const auto upper = static_cast<std::uint32_t>(bound >> 32);
    const auto lower = static_cast<std::uint32_t>(bound);
    filter.push_back(Load(SKF_AD_RANDOM));
    if (lower == 0) {
        filter.push_back(Jump(BPF_JGE, upper, kNotSampled, 0));
        return;
    }
    filter.push_back(Jump(BPF_JGT, upper, kNotSampled, 0));
    filter.push_back(Jump(BPF_JEQ, upper, 0, 2));
    filter.push_back(Load(SKF_AD_RANDOM));
    filter.push_back(Jump(BPF_JGE, lower, kNotSampled, 0));
}

// Continues for what is in the scope, which has a direction.
void AppendScope(RingFilter& filter, const RingScope& scope)
{
    if (scope.ownMark != 0) {
        filter.push_back(Load(SKF_AD_MARK));
        filter.push_back(Jump(BPF_JEQ, scope.ownMark, kOutOfScope, 0));
    }
    if (scope.egress && scope.ingress) return;
    if (scope.ingress && scope.outgoingIgnored) return;
    filter.push_back(Load(SKF_AD_PKTTYPE));
    filter.push_back(scope.ingress ? Jump(BPF_JEQ, PACKET_OUTGOING, kOutOfScope, 0)
                                   : Jump(BPF_JEQ, PACKET_OUTGOING, 0, kOutOfScope));
}

// What the program returns for a packet that is sampled, that is not, and that is beyond the scope.
struct Answers {
    std::uint32_t sampled, notSampled, outOfScope;
};

void End(RingFilter& filter, const Answers& answers)
{
    const std::size_t end = filter.size();
    filter.push_back(Return(answers.sampled));
    filter.push_back(Return(answers.notSampled));
    filter.push_back(Return(answers.outOfScope));
    for (std::size_t at = 0; at < end; ++at) {
        if (BPF_CLASS(filter[at].code) != BPF_JMP) continue;
        for (std::uint8_t* distance : {&filter[at].jt, &filter[at].jf}) {
            if (*distance == kNotSampled) *distance = static_cast<std::uint8_t>(end - at);
            if (*distance == kOutOfScope) *distance = static_cast<std::uint8_t>(end + 1 - at);
        }
    }
}

}  // namespace

RingFilter RejectingFilter() { return {Return(0)}; }

RingFilter DividingProgram(std::uint32_t rate, const RingScope& scope, std::uint32_t samplingMember)
{
    RingFilter program;
    AppendScope(program, scope);
    AppendSampling(program, rate);
    End(program, {samplingMember, kCountingMember, samplingMember});
    return program;
}

RingFilter KeepingFilter(std::uint32_t bytes, const RingScope& scope)
{
    if (!scope.ingress && !scope.egress) return RejectingFilter();
    RingFilter filter;
    AppendScope(filter, scope);
    End(filter, {bytes, 0, 0});
    return filter;
}

RingFilter SamplingFilter(std::uint32_t rate, std::uint32_t bytes, const RingScope& scope)
{
    if (!scope.ingress && !scope.egress) return RejectingFilter();
    RingFilter filter;
    AppendSampling(filter, rate);
    AppendScope(filter, scope);
    End(filter, {bytes, 0, 0});
    return filter;
}

RingFilter CountingFilter(const RingScope& scope)
{
    if (!scope.ingress && !scope.egress) return RejectingFilter();
    RingFilter filter;
    AppendScope(filter, scope);
    End(filter, {1, 0, 0});
    return filter;
}

std::uint32_t SnapLength(const Settings& settings)
{
    const std::size_t wanted = std::min<std::size_t>(settings.headerSize, kMaxHeader);
    return static_cast<std::uint32_t>(std::max(wanted, kMinHeader));
}

}  // namespace capture
