// SPDX-License-Identifier: Apache-2.0
// The programs of the packet sockets: instruction by instruction with numbers in place of chance, and by the
// kernel on real packets.

#include "capture/packet_socket/filter.h"

#include <gmock/gmock.h>
#include <linux/if_packet.h>

#include <deque>
#include <limits>
#include <ostream>

#include "capture/packet_socket/socket.h"
#include "capture/source_suite.h"

namespace {

using namespace capture;
using source_suite::kOwnMark;
using source_suite::MarkedSender;
using support::Network;

// What a program is run on.
struct Packet {
    std::uint32_t mark = 0;
    std::uint32_t type = PACKET_HOST;
    std::deque<std::uint32_t> randoms{};  // in the order of asking
};

// Runs the few instructions that the programs are made of; anything else fails the test.
std::uint32_t Answer(const RingFilter& program, Packet packet)
{
    std::uint32_t value = 0;
    for (std::size_t at = 0; at < program.size(); ++at) {
        const sock_filter& one = program[at];
        switch (one.code) {
        case BPF_RET | BPF_K:
            return one.k;
        case BPF_LD | BPF_W | BPF_ABS:
            if (one.k == static_cast<std::uint32_t>(SKF_AD_OFF + SKF_AD_MARK)) {
                value = packet.mark;
            } else if (one.k == static_cast<std::uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE)) {
                value = packet.type;
            } else if (one.k == static_cast<std::uint32_t>(SKF_AD_OFF + SKF_AD_RANDOM)) {
                if (packet.randoms.empty()) throw std::logic_error("one random number too many");
                value = packet.randoms.front();
                packet.randoms.pop_front();
            } else {
                throw std::logic_error("loads " + std::to_string(one.k));
            }
            break;
        case BPF_JMP | BPF_JEQ | BPF_K:
            at += value == one.k ? one.jt : one.jf;
            break;
        case BPF_JMP | BPF_JGT | BPF_K:
            at += value > one.k ? one.jt : one.jf;
            break;
        case BPF_JMP | BPF_JGE | BPF_K:
            at += value >= one.k ? one.jt : one.jf;
            break;
        default:
            throw std::logic_error("instruction " + std::to_string(one.code));
        }
    }
    throw std::logic_error("runs beyond its end");
}

// What a random number of 64 bits makes of a packet, asked for in halves.
std::uint32_t AnswerWith(const RingFilter& program, std::uint64_t random)
{
    return Answer(
        program, {.randoms = {static_cast<std::uint32_t>(random >> 32), static_cast<std::uint32_t>(random)}});
}

class RateOf : public testing::TestWithParam<std::uint32_t> {};

TEST_P(RateOf, IsTheShareOfRandomNumbersThatSampleToTheLastBit)
{
    const std::uint32_t rate = GetParam();
    const RingFilter dividing = DividingProgram(rate, {.ownMark = 0, .outgoingIgnored = true});
    const RingFilter sampling = SamplingFilter(rate, 100, {.ownMark = 0, .outgoingIgnored = true});
    // 2^64 / rate, divided in two steps of 32 bits.
    constexpr std::uint64_t kHalf = 1ULL << 32U;
    const std::uint64_t bound = kHalf / rate * kHalf + kHalf % rate * kHalf / rate;
    for (const std::uint64_t sampled : {std::uint64_t{0}, std::uint64_t{1}, bound / 2, bound - 1}) {
        EXPECT_EQ(AnswerWith(dividing, sampled), kSamplingMember) << sampled;
        EXPECT_EQ(AnswerWith(sampling, sampled), 100U) << sampled;
    }
    for (const std::uint64_t left :
         {bound, bound + 1, bound + kHalf, std::numeric_limits<std::uint64_t>::max()}) {
        EXPECT_EQ(AnswerWith(dividing, left), kCountingMember) << left;
        EXPECT_EQ(AnswerWith(sampling, left), 0U) << left;
    }
}

INSTANTIATE_TEST_SUITE_P(RingFilter, RateOf,
                         testing::Values(2, 3, 7, 10, 256, 1000, 65535, 65536, 16777215, 16777216,
                                         4294967295),
                         [](const auto& rate) { return std::to_string(rate.param); });

TEST(RingFilter, AsksForNoRandomNumberAtOneInOne)
{
    EXPECT_EQ(Answer(DividingProgram(1, {.ownMark = kOwnMark}), {}), kSamplingMember);
    EXPECT_EQ(Answer(SamplingFilter(1, 77, {.ownMark = kOwnMark}), {}), 77U);
}

TEST(RingFilter, RejectsAllWithoutADirection)
{
    const RingScope none{.ingress = false, .egress = false};
    for (const std::uint32_t type : {std::uint32_t{PACKET_HOST}, std::uint32_t{PACKET_OUTGOING}}) {
        EXPECT_EQ(Answer(KeepingFilter(100, none), {.type = type}), 0U);
        EXPECT_EQ(Answer(SamplingFilter(1, 100, none), {.type = type}), 0U);
        EXPECT_EQ(Answer(CountingFilter(none), {.type = type}), 0U);
    }
}

TEST(RingFilter, KeepsWhatIsWantedButNeverTooLittle)
{
    for (const auto& [wanted, kept] :
         {std::pair<int, unsigned>{0, 96}, {95, 96}, {96, 96}, {97, 97}, {512, 512}, {65535, 512}})
        EXPECT_EQ(SnapLength({.headerSize = static_cast<std::uint16_t>(wanted)}), kept) << wanted;
}

// ---- by the kernel ----

struct ScopeRow {
    std::string name;
    RingScope scope;
    unsigned
        passing;  // of the four kinds of packets, as bits: entering, entering marked, leaving, leaving marked
};
void PrintTo(const ScopeRow& row, std::ostream* out) { *out << row.name; }

class Scope : public testing::TestWithParam<ScopeRow> {
protected:
    void SetUp() override
    {
        if (const std::string why = Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
        m_network.emplace();
        Network::Veth("near", "far");
    }

    // How many packets pass: one of the first kind, ten of the second, 100 of the third, 1,000 of the fourth.
    static std::uint64_t Passing(const RingFilter& filter, bool ignoreOutgoing)
    {
        CountingSocket socket;
        socket.IgnoreOutgoing(ignoreOutgoing);
        socket.Attach(filter);
        socket.Bind(Network::Index("near"));
        const MarkedSender entering("far", 0), enteringOurs("far", kOwnMark);
        const MarkedSender leaving("near", kOwnMark + 1), leavingOurs("near", kOwnMark);
        const support::Bytes frame = support::UdpFrame({});
        entering.Send(frame);
        for (int i = 0; i < 10; ++i) enteringOurs.Send(frame);
        for (int i = 0; i < 100; ++i) leaving.Send(frame);
        for (int i = 0; i < 1000; ++i) leavingOurs.Send(frame);
        return socket.Statistics().passed;
    }

    [[nodiscard]] static std::uint64_t Expected()
    {
        std::uint64_t expected = 0;
        for (std::uint64_t kind = 0, count = 1; kind < 4; ++kind, count *= 10)
            if ((GetParam().passing >> kind & 1U) != 0) expected += count;
        return expected;
    }

    std::optional<Network> m_network;
};

TEST_P(Scope, IsWhatTheKernelLetsPass)
{
    const RingScope& scope = GetParam().scope;
    EXPECT_EQ(Passing(CountingFilter(scope), scope.outgoingIgnored), Expected());
    EXPECT_EQ(Passing(KeepingFilter(100, scope), scope.outgoingIgnored), Expected());
    EXPECT_EQ(Passing(SamplingFilter(1, 100, scope), scope.outgoingIgnored), Expected());
}

INSTANTIATE_TEST_SUITE_P(
    RingFilter, Scope,
    testing::Values(ScopeRow{"Entering", {true, false, kOwnMark, false}, 0b0001},
                    ScopeRow{"EnteringAndLeavingUnseen", {true, false, kOwnMark, true}, 0b0001},
                    ScopeRow{"Leaving", {false, true, kOwnMark, false}, 0b0100},
                    ScopeRow{"Both", {true, true, kOwnMark, false}, 0b0101},
                    ScopeRow{"BothAndNoMark", {true, true, 0, false}, 0b1111},
                    ScopeRow{"EnteringAndNoMark", {true, false, 0, false}, 0b0011},
                    ScopeRow{"Neither", {false, false, kOwnMark, false}, 0}),
    [](const auto& row) { return row.param.name; });

}  // namespace
