// SPDX-License-Identifier: Apache-2.0
#include "capture/drops_world.h"

#include <fstream>
#include <stdexcept>

void SetKernel(const std::string& name, const std::string& value)
{
    std::ofstream file("/proc/sys/" + name);
    if (!(file << value << std::flush)) throw std::runtime_error("/proc/sys/" + name + " can't be written");
}

std::string WhyNoFirewall()
{
    try {
        support::Network::Run({"nft", "list", "ruleset"});
        return "";
    } catch (const std::runtime_error& error) {
        return std::string("no nft, or no kernel for it: ") + error.what();
    }
}

void DropsWorld::SetUp()
{
    using support::Network;
    if (const auto why = Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
    network.emplace();
    Start();
    if (IsSkipped()) return;
    host0.emplace();
    host1.emplace();
    int number = 0;
    for (const auto* host : {&*host0, &*host1}) {
        const std::string end = std::to_string(number++);
        Network::Ip("link add near" + end + " type veth peer name far" + end + " netns " +
                    std::to_string(host->Pid()) + "\nlink set near" + end + " address 02:00:00:00:00:1" +
                    end + " up");
        host->Within([&] { Network::Ip("link set far" + end + " up"); });
        Network::AwaitSending("near" + end);
    }
    near0 = Network::Index("near0");
    near1 = Network::Index("near1");
    host0->Within([&] {
        Network::AwaitSending("far0");
        m_injector.emplace("far0");
    });
    host1->Within([] { Network::AwaitSending("far1"); });
}

void DropsWorld::Start(const capture::DropOptions& options)
{
    source.reset();
    sink.drops.clear();
    try {
        source = capture::MakeDropSource(loop, timers, sink, options);
    } catch (const capture::Unavailable& reason) {
        GTEST_SKIP() << reason.what();
    }
}

void DropsWorld::SendForeign(std::size_t count, std::size_t size)
{
    std::vector<support::Bytes> frames;
    for (std::size_t i = 0; i < count; ++i)
        frames.push_back(support::UdpFrame({.from = 1, .to = 0x99, .size = size, .number = i}));
    Send(frames);
}

capture::InterfaceDrops DropsWorld::Read(std::uint32_t ifIndex) const
{
    auto drops = source->Read(ifIndex);
    return drops ? *drops : capture::InterfaceDrops{ifIndex, {}, {}, 0};
}

std::uint64_t DropsWorld::DropsFor(std::uint32_t ifIndex, std::string_view reason) const
{
    for (const auto& count : Read(ifIndex).reasons)
        if (source->NameOf(count.reason) == reason) return count.drops;
    return 0;
}

std::string DropsWorld::Everything() const
{
    std::string text = "interfaces with drops:";
    for (const auto& each : source->ReadAll()) {
        text += " " + std::to_string(each.ifIndex) + ":";
        for (const auto& count : each.reasons)
            text += " " + std::string(source->NameOf(count.reason)) + " " + std::to_string(count.drops);
    }
    return text;
}

void DropsWorld::Await(std::uint32_t ifIndex, std::uint64_t drops)
{
    EXPECT_TRUE(support::Becomes([&] { return DropsAt(ifIndex) >= drops; })) << Everything();
    EXPECT_EQ(DropsAt(ifIndex), drops) << Everything();
    source->Drain();
}
