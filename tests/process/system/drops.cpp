// SPDX-License-Identifier: Apache-2.0
// What the suites about dropped packets share (see the header).

#include "system/drops.h"

#include <filesystem>

#include "support/kernel.h"

namespace system_tests {
namespace {

constexpr std::uint16_t kMetricsPort = 9100;  // in the test's own network
constexpr std::uint8_t kBusy = 0x20, kNeighbour = 0x21;
constexpr const char* kKernelTypes = "/sys/kernel/btf/vmlinux";

}  // namespace

void Drops::SetUp()
{
    if (const std::string why = support::WhyNotSource("ebpf-clsact"); !why.empty()) GTEST_SKIP() << why;
    if (!std::filesystem::exists(kKernelTypes)) GTEST_SKIP() << "the kernel has no " << kKernelTypes;
    OwnSettings::SetUp();
    if (IsSkipped()) return;
    // The neighbour gets the kernel's answers (RFC 1122, 3.2.2.1), so "busy" drops none for lack of it.
    Network::Ip(
        "link set busy address 02:00:00:00:00:20\naddress add 10.0.0.1/24 dev busy\n"
        "neigh add 10.0.0.2 lladdr 02:00:00:00:00:21 nud permanent dev busy\n");
    Network::AwaitSending("far-end");
}

WorldOptions Drops::Options() const
{
    WorldOptions options = OwnSettings::Options();
    options.managerArguments = {"--metrics", "127.0.0.1:" + std::to_string(kMetricsPort)};
    return options;
}

void Drops::Watch(const std::string& commands)
{
    Commit(commands);
    support::Await("dropped packets to be looked at",
                   [&] { return Sflow().at("manager").at("discard-interfaces") != "none"; });
}

Bytes Drops::ToNoSocket(std::uint64_t number)
{
    return support::UdpFrame({.from = kNeighbour,
                              .to = kBusy,
                              .source = "10.0.0.2",
                              .destination = "10.0.0.1",
                              .destinationPort = 4009,
                              .number = number});
}

Bytes Drops::ToOther(std::uint64_t number) { return support::UdpFrame({.number = number}); }

void Drops::Send(const std::vector<Bytes>& frames, const std::string& device)
{
    Injector(device).Send(frames);
}

void Drops::SendToOther(std::size_t count, const std::string& device)
{
    Send(std::vector<Bytes>(count, ToOther()), device);
}

std::vector<DecodedDiscard> Drops::DiscardsAt(const std::string& device, DecodingCollector& collector)
{
    const std::uint32_t index = Network::Index(device);
    std::vector<DecodedDiscard> all;
    for (const Arrival& arrival : collector.Arrivals())
        for (DecodedDiscard& discard : arrival.datagram.Discards())
            if (discard.sourceIndex == index) all.push_back(std::move(discard));
    return all;
}

std::vector<DecodedDiscard> Drops::AwaitDiscards(const std::string& device, std::size_t count,
                                                 DecodingCollector& collector)
{
    std::vector<DecodedDiscard> all;
    const bool enough =
        support::Becomes([&] { return (all = DiscardsAt(device, collector)).size() >= count; });
    EXPECT_TRUE(enough) << all.size() << " of " << count << " have come";
    DecodingCollector::AwaitQuiet({&collector});
    return DiscardsAt(device, collector);
}

nlohmann::json Drops::AllShown()
{
    const auto shown = nlohmann::json::parse(m_world->CliDone("show sflow drops | json"));
    return shown.at("switch-state:state").at("oam").at("sflow").value("drops", nlohmann::json::array());
}

std::vector<std::string> Drops::InterfacesShown()
{
    std::vector<std::string> names;
    for (const auto& entry : AllShown()) names.push_back(entry.at("interface"));
    return names;
}

nlohmann::json Drops::DropsShown(const std::string& device)
{
    for (const auto& entry : AllShown())
        if (entry.at("interface") == device) return entry;
    return nullptr;
}

std::uint64_t Drops::PacketsShown(const std::string& device, const char* leaf)
{
    const nlohmann::json entry = DropsShown(device);
    return entry.is_null() ? 0 : CountIn(entry, leaf);
}

support::Metrics Drops::Numbers() { return support::Metrics::Fetch(kMetricsPort); }

std::uint64_t CountIn(const nlohmann::json& entry, const char* leaf)
{
    return std::stoull(entry.at(leaf).get<std::string>());
}

}  // namespace system_tests
