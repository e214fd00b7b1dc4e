// SPDX-License-Identifier: Apache-2.0
// The eBPF source under change: interfaces that come and go and settings that change while packets pass.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "capture/bpf/records.h"
#include "capture/ebpf_world.h"

namespace {

using capture::Settings;
using support::Network;

class EbpfChangeTest : public EbpfWorld {};

TEST_F(EbpfChangeTest, ChangesRateAndHeaderSizeAtOnceAndKeepsTheCounts)
{
    Add(right, {.rate = 1, .headerSize = 128});
    Cross(100);
    Change(right, {.rate = 16777215, .headerSize = 128});
    Cross(100);  // a sample among them has a probability of 6e-6; rate and pool would still be right
    Change(right, {.rate = 1, .headerSize = 256});
    Cross(Frames(100, 300));
    source->Drain();
    ASSERT_GE(sink.samples.size(), 200U);
    EXPECT_EQ(sink.samples[99].pool, 100U);
    EXPECT_EQ(sink.samples[100].pool, 201U);
    EXPECT_EQ(sink.headers[99].size(), 128U);
    EXPECT_EQ(sink.headers[100].size(), 256U);
    EXPECT_EQ(sink.samples[199].pool, 300U);
}

TEST_F(EbpfChangeTest, LabelsASampleWithTheRateThatItWasSampledWith)
{
    Add(right, {.rate = 1, .headerSize = 128});
    Cross(10);
    Change(right, {.rate = 2, .headerSize = 128});
    source->Drain();
    ASSERT_EQ(sink.samples.size(), 10U);
    for (const auto& sample : sink.samples) EXPECT_EQ(sample.rate, 1U);
    Cross(200);
    source->Drain();
    ASSERT_GT(sink.samples.size(), 10U);
    for (std::size_t i = 10; i < sink.samples.size(); ++i) EXPECT_EQ(sink.samples[i].rate, 2U);
}

TEST_F(EbpfChangeTest, ChangesTheDirectionWithoutAGapInTheCounts)
{
    Settings settings{.rate = 1, .headerSize = 128, .ingress = true, .egress = false};
    Add(left, settings);
    support::Injector from("right");
    from.Send(Frames(5));
    AwaitPool(left, 5);
    settings.ingress = false;
    settings.egress = true;
    Change(left, settings);
    EXPECT_EQ(source->Read(left).pool, 5U) << "what was counted stays";
    from.Send(Frames(50));
    Cross(Frames(7), left);
    settings.ingress = true;
    Change(left, settings);
    from.Send(Frames(9));
    AwaitPool(left, 21);
    source->Drain();
    EXPECT_EQ(sink.samples.size(), 21U);
    EXPECT_EQ(sink.samples.back().pool, 21U);
}

TEST_F(EbpfChangeTest, TellsInterfacesApartWhoseIndexesShareAPlace)
{
    constexpr std::uint32_t kFirst = 70'001;
    constexpr std::uint32_t kSecond = kFirst + kDirectPorts / 2;
    Network::Ip(
        fmt::format("link add name first index {} type veth peer name first-end\n"
                    "link add name second index {} type veth peer name second-end\n"
                    "link set first up\nlink set first-end up\n"
                    "link set second up\nlink set second-end up\n",
                    kFirst, kSecond));
    const auto cross = [&](const std::string& end, std::uint32_t at, std::size_t count) {
        support::Injector(end).Send(Frames(count));
        AwaitPool(at, count);
    };
    Add(kFirst, {.rate = 1, .headerSize = 128});
    Add(kSecond, {.rate = 1, .headerSize = 128});
    cross("first-end", kFirst, 30);
    cross("second-end", kSecond, 20);
    source->Drain();
    EXPECT_EQ(std::ranges::count(sink.samples, kFirst, &capture::Sample::ifIndex), 30);
    EXPECT_EQ(std::ranges::count(sink.samples, kSecond, &capture::Sample::ifIndex), 20);
    EXPECT_EQ(source->Remove(kFirst).pool, 30U);
    EXPECT_EQ(source->Read(kSecond).pool, 20U) << "where it is stays its own";

    Add(kFirst, {.rate = 1, .headerSize = 128});
    EXPECT_EQ(source->Read(kFirst).pool, 0U) << "counts begin at zero in a place used before";
    cross("first-end", kFirst, 10);
    EXPECT_EQ(source->Read(kSecond).pool, 20U);

    source->Drain();
    sink.samples.clear();
    Change(kSecond, {.rate = 16777215, .headerSize = 128});
    support::Injector("second-end").Send(Frames(40));  // a sample among them has a probability of 2e-6
    AwaitPool(kSecond, 60);
    Change(kSecond, {.rate = 1, .headerSize = 128});
    support::Injector("second-end").Send(Frames(5));
    AwaitPool(kSecond, 65);
    source->Drain();
    EXPECT_EQ(sink.samples.size(), 5U) << "a change takes effect there too";
}

}  // namespace
