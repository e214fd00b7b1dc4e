// SPDX-License-Identifier: Apache-2.0
// Samples of packets as they leave: by which interface they had entered and by which route they go, as the
// samples of their entry have it, and which ones this machine has made itself.

#include <arpa/inet.h>
#include <endian.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "samples/samples_test.h"
#include "samples/shapes.h"

namespace samples_tests {

namespace {

using support::DecodedRouter;

/// One datagram of this machine's own to a port of that address, with the number that NumberOf finds.
void SendOwn(const std::string& address, std::uint64_t number)
{
    sockaddr_in four{};
    sockaddr_in6 six{};
    four.sin_family = AF_INET;
    six.sin6_family = AF_INET6;
    four.sin_port = six.sin6_port = htons(2000);
    const bool isSix = ::inet_pton(AF_INET6, address.c_str(), &six.sin6_addr) == 1;
    if (!isSix && ::inet_pton(AF_INET, address.c_str(), &four.sin_addr) != 1)
        throw std::invalid_argument(address);
    const auto* to =
        isSix ? reinterpret_cast<const sockaddr*>(&six) : reinterpret_cast<const sockaddr*>(&four);
    const std::uint64_t payload = htobe64(number);
    const int socket = ::socket(isSix ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    const auto sent = ::sendto(socket, &payload, sizeof payload, 0, to, isSix ? sizeof six : sizeof four);
    const int error = errno;
    ::close(socket);
    if (sent != sizeof payload) throw std::system_error(error, std::generic_category(), "to " + address);
}

class LeavingTest : public SourceTest {
protected:
    void SetUp() override
    {
        SourceTest::SetUp();
        if (IsSkipped()) return;
        SetSwitch("ipv6/conf/default/disable_ipv6", "1");  // ports and hosts say nothing of their own
        MakeBridge(2);
        m_far = std::make_unique<Network::Host>();
        MakeRouter(*m_far);
        m_collector = std::make_unique<Collector>();
        Agent& agent = StartSource({"--direction", "both"});
        agent.AddCollector("c1", m_collector->Port());
        for (const char* interface : {"p1", "p2", "r0"}) agent.Update(interface, {.flows = "c1"});
    }

    /// What leaves and has this number; the router has things of its own to say.
    DecodedFlow Left(const std::string& interface, std::uint64_t number)
    {
        return Sampled(number, [&](const DecodedFlow& flow) {
            return flow.sourceIndex == Network::Index(interface) &&
                   flow.output == DecodedPort{0, Network::Index(interface)};
        });
    }
    DecodedFlow Entered(const std::string& interface, std::uint64_t number)
    {
        return Sampled(number, [&](const DecodedFlow& flow) {
            return flow.sourceIndex == Network::Index(interface) &&
                   flow.input == DecodedPort{0, Network::Index(interface)};
        });
    }
    [[nodiscard]] const Network::Host& Far() const { return *m_far; }

    static DecodedPort Port(const std::string& interface) { return {0, Network::Index(interface)}; }

private:
    template <typename Wanted>
    DecodedFlow Sampled(std::uint64_t number, Wanted wanted)
    {
        DecodedFlow found;
        support::Await("sample of " + std::to_string(number), [&] {
            const auto flows = m_collector->Flows();
            const auto at = std::ranges::find_if(flows, [&](const DecodedFlow& flow) {
                return support::NumberOf(flow.header->bytes) == number && wanted(flow);
            });
            if (at != flows.end()) found = *at;
            return at != flows.end();
        });
        return found;
    }

    std::unique_ptr<Network::Host> m_far;
    std::unique_ptr<Collector> m_collector;
};

INSTANTIATE_TEST_SUITE_P(, LeavingTest, AllSources(), NameOfSource);

// sFlow v5, section 5, flow_sample: the interface by which a packet was received; extended_router: its
// route. The next hop of a destination that is directly connected is no router: all zeros.
TEST_P(LeavingTest, ARoutedPacketHasTheInterfaceThatItEnteredByAndTheRouteOfItsEntry)
{
    struct Row {
        const char* to;
        DecodedRouter by;
    };
    Injector injector("h1");
    std::uint64_t number = 100;
    for (const Row& row :
         {Row{"192.0.2.7", {"203.0.113.2", 24, 25}}, Row{"203.0.113.3", {"0.0.0.0", 24, 28}},
          Row{"2001:db8:c::7", {"2001:db8:b::2", 64, 48}}, Row{"2001:db8:b::2", {"::", 64, 96}}}) {
        SCOPED_TRACE(row.to);
        support::FrameOptions options = ToRouter(row.to);
        options.number = ++number;
        injector.Send(IpUdp(options));
        const DecodedFlow entered = Entered("p1", number), left = Left("r0", number);
        EXPECT_EQ(entered.output, Port("r0"));
        EXPECT_EQ(entered.extendedRouter, row.by);
        EXPECT_EQ(left.input, Port("br0")) << "the bridge is what the router has it from";
        EXPECT_EQ(left.extendedRouter, row.by);
    }
}

TEST_P(LeavingTest, SoDoesOneThatLeavesByABridge)
{
    const support::FrameOptions back{
        .from = 0x42, .to = 0x31, .source = "203.0.113.2", .destination = "10.0.0.1", .number = 7};
    Far().Within([&] { Injector("r1").Send(IpUdp(back)); });
    const DecodedRouter by{"0.0.0.0", 28, 24};
    EXPECT_EQ(Entered("r0", 7).extendedRouter, by);
    const DecodedFlow left = Left("p1", 7);
    EXPECT_EQ(left.input, Port("r0"));
    EXPECT_EQ(left.extendedRouter, by);
}

// sFlow v5, extended_router: of routed packets only.
TEST_P(LeavingTest, ABridgedPacketHasItsPortAndNoRoute)
{
    Injector("h1").Send(IpUdp({.source = "10.0.0.1", .destination = "192.0.2.7", .number = 8}));
    const DecodedFlow left = Left("p2", 8);
    EXPECT_EQ(left.input, Port("p1"));
    EXPECT_FALSE(left.extendedRouter);
}

// sFlow v5, section 5, struct interface: the input 0x3FFFFFFF, made by the agent itself.
TEST_P(LeavingTest, WhatThisMachineSendsIsItsOwn)
{
    struct Row {
        const char* to;
        const char* by;
    };
    std::uint64_t number = 200;
    for (const Row& row : {Row{"203.0.113.3", "r0"},
                           {"192.0.2.7", "r0"},
                           {"2001:db8:b::2", "r0"},
                           {"203.0.113.15", "r0"},
                           {"10.0.0.1", "p1"}}) {
        SCOPED_TRACE(row.to);
        SendOwn(row.to, ++number);
        const DecodedFlow left = Left(row.by, number);
        EXPECT_EQ(left.input, kInternal);
        EXPECT_FALSE(left.extendedRouter);
    }
}

}  // namespace

}  // namespace samples_tests
