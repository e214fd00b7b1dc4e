// SPDX-License-Identifier: Apache-2.0
// DSCP, source address and device of a collector's datagrams, in the kernel of a network of the test's own.

#include <linux/capability.h>
#include <netinet/in.h>
#include <seccomp.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manager/export/world.h"
#include "support/kernel.h"

namespace exporter_test {
namespace {

using manager::SendSettings;
using manager::Tried;
using support::Network;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<unsigned> DscpsOf(const std::vector<Received>& received)
{
    std::vector<unsigned> all;
    for (const Received& datagram : received) all.push_back(datagram.origin.tos / 4U);
    return all;
}

std::vector<std::string> SourcesOf(const std::vector<Received>& received)
{
    std::vector<std::string> all;
    for (const Received& datagram : received) all.push_back(datagram.origin.address);
    return all;
}

SendSettings From(const std::string& address) { return {.sourceAddress = Address(address)}; }
SendSettings By(const std::string& device) { return {.device = device}; }

class SendSettingsTest : public ExporterTest {
protected:
    Stream& Set(const SendSettings& send, const std::string& to = "127.0.0.2")
    {
        return Export().Set("c1", Settings(to, 6343, 1400), send);
    }
    const StreamStatus& Status() { return Export().Find("c1")->Status(); }
    /// A second later, when a socket that could not be had is tried again.
    void SendLater(Stream& stream)
    {
        Advance(milliseconds(1000));
        SendOne(stream);
    }
    /// Two ways to 10.1.0.2, of which the routes prefer that by "near"; what is sent arrives at the other
    /// ends, "near-end" and "far-end", and at no socket.
    static void MakeTwoWays()
    {
        for (const std::string name : {"near", "far"}) {
            Network::Veth(name, name + "-end");
            Network::Ip("neighbour add 10.1.0.2 lladdr 02:00:00:00:00:02 dev " + name + "\n");
            Network::AwaitSending(name);
        }
        Network::Ip(
            "address add 10.1.0.1/32 dev lo\n"
            "route add 10.1.0.0/24 dev near metric 1\nroute add 10.1.0.0/24 dev far metric 2\n");
    }
};

TEST_F(SendSettingsTest, AnotherDscpMarksWhatIsSentFromThenOnFromTheSameSocket)
{
    Collector collector("127.0.0.2", 6343), other("127.0.0.3", 6343);
    Stream& bystander = Export().Set("c2", Settings("127.0.0.3", 6343, 1400));
    Stream& stream = Set({});
    SendOne(stream);
    Put(stream, 1, 100);
    Set({.dscp = 46});
    SendOne(stream);
    Put(stream, 9, 220);
    Set({.dscp = 63});
    EXPECT_TRUE(Status().sending) << "nothing has to be tried anew";
    SendOne(stream);
    Set({});
    SendOne(stream);
    SendOne(bystander);
    const auto received = collector.Take(7);
    EXPECT_THAT(DscpsOf(received), ElementsAre(0, 0, 46, 46, 46, 63, 0));
    EXPECT_EQ(Sequences(received), FromTo(1, 7));
    for (const Received& datagram : received) {
        EXPECT_EQ(datagram.origin.port, received[0].origin.port);
        EXPECT_EQ(datagram.origin.tos % 4U, 0U) << "the bits of ECN";
    }
    EXPECT_THAT(DscpsOf(other.Take(1)), ElementsAre(0));
}

TEST_F(SendSettingsTest, ACollectorBeginsWithItsDscpAndKeepsItWhenItMoves)
{
    Collector collector("127.0.0.2", 6343), moved("127.0.0.3", 6343);
    SendOne(Set({.dscp = 8}));
    SendOne(Set({.dscp = 8}, "127.0.0.3"));
    EXPECT_THAT(DscpsOf(collector.Take(1)), ElementsAre(8));
    EXPECT_THAT(DscpsOf(moved.Take(1)), ElementsAre(8));
}

TEST_F(SendSettingsTest, DatagramsComeFromTheSourceAddressAndTheSequenceGoesOn)
{
    Collector collector("127.0.0.2", 6343), other("127.0.0.3", 6343);
    Stream& bystander = Export().Set("c2", Settings("127.0.0.3", 6343, 1400));
    SendOne(bystander);
    Stream& stream = Set({});
    SendOne(stream);
    Put(stream, 1, 100);
    Set(From("127.0.0.9"));
    SendOne(stream);
    Set(From("127.0.0.10"));
    SendOne(stream);
    Set({});
    SendOne(stream);
    SendOne(bystander);
    const auto received = collector.Take(5);
    EXPECT_THAT(SourcesOf(received),
                ElementsAre("127.0.0.1", "127.0.0.1", "127.0.0.9", "127.0.0.10", "127.0.0.1"));
    EXPECT_EQ(Sequences(received), FromTo(1, 5));
    EXPECT_EQ(Status().datagrams, 5U);
    const auto undisturbed = other.Take(2);
    EXPECT_THAT(Sequences(undisturbed), ElementsAre(1, 2));
    EXPECT_EQ(undisturbed.at(0).origin.port, undisturbed.at(1).origin.port);
}

TEST_F(SendSettingsTest, NothingIsSentWhileTheMachineDoesNotHaveTheSourceAddress)
{
    Collector collector("127.0.0.2", 6343);
    Stream& stream = Set(From("192.0.2.9"));
    EXPECT_EQ(Status().lastError, Code(EADDRNOTAVAIL));
    EXPECT_EQ(Status().lastTried, Tried::kSource);
    EXPECT_EQ(Status().lastErrorText,
              "send from 192.0.2.9 to 127.0.0.2:6343: Cannot assign requested address (this machine does not "
              "have the address)");
    SendOne(stream);
    SendLater(stream);
    EXPECT_EQ(Status().lostDatagrams, 2U);
    EXPECT_FALSE(Status().sending);

    Network::Ip("address add 192.0.2.9/32 dev lo\n");
    SendOne(stream);
    EXPECT_EQ(Status().lostDatagrams, 3U) << "tried again once a second";
    SendLater(stream);
    EXPECT_TRUE(Status().sending);

    Network::Ip("address delete 192.0.2.9/32 dev lo\n");
    SendLater(stream);
    SendLater(stream);
    EXPECT_EQ(Status().lastTried, Tried::kSource);
    EXPECT_FALSE(Status().sending);
    Network::Ip("address add 192.0.2.9/32 dev lo\n");
    SendLater(stream);
    const auto received = collector.TakeAll();
    EXPECT_THAT(SourcesOf(received), Each("192.0.2.9"));
    EXPECT_THAT(Sequences(received), ElementsAre(4, 7));
}

TEST_F(SendSettingsTest, NoDatagramComesFromAnAddressThatIsNoHosts)
{
    Collector collector("127.0.0.2", 6343);
    Network::Veth("near", "near-end");
    Network::Ip("address add 10.1.0.1/24 brd 10.1.0.255 dev near\n");
    for (const char* const address : {"224.0.0.1", "255.255.255.255", "10.1.0.255", "127.255.255.255"}) {
        SendOne(Set(From(address)));
        EXPECT_EQ(Status().lastError, Code(EADDRNOTAVAIL)) << address;
        EXPECT_EQ(Status().lastTried, Tried::kSource) << address;
    }
    SendOne(Set(From("10.1.0.1")));
    EXPECT_THAT(SourcesOf(collector.Take(1)), ElementsAre("10.1.0.1"));
    EXPECT_EQ(Status().lostDatagrams, 4U);
}

TEST_F(SendSettingsTest, DatagramsLeaveByTheDevice)
{
    MakeTwoWays();
    Stream& stream = Set({}, "10.1.0.2");
    const auto arrived = [](const char* device) { return support::Received(device); };
    const auto near = arrived("near-end"), far = arrived("far-end");
    SendOne(stream);
    EXPECT_EQ(arrived("near-end"), near + 1);
    Put(stream, 1, 100);
    Set(By("far"), "10.1.0.2");
    EXPECT_EQ(arrived("near-end"), near + 2) << "what waited went the way that it was meant for";
    SendOne(stream);
    SendOne(stream);
    EXPECT_EQ(arrived("far-end"), far + 2);
    Set({.sourceAddress = Address("10.1.0.1"), .dscp = 1, .device = "far"}, "10.1.0.2");
    SendOne(stream);
    EXPECT_EQ(arrived("far-end"), far + 3);
    Set({}, "10.1.0.2");
    SendOne(stream);
    EXPECT_EQ(arrived("near-end"), near + 3);
    EXPECT_EQ(Status().datagrams, 6U);
    EXPECT_EQ(Status().lostDatagrams, 0U);
}

TEST_F(SendSettingsTest, NothingIsSentWhileThereIsNoDevice)
{
    MakeTwoWays();
    const auto near = support::Received("near-end");
    Stream& stream = Set(By("other"), "10.1.0.2");
    EXPECT_EQ(Status().lastError, Code(ENODEV));
    EXPECT_EQ(Status().lastTried, Tried::kDevice);
    EXPECT_EQ(Status().lastErrorText, "send by other to 10.1.0.2:6343: No such device (there is none)");
    SendOne(stream);
    Network::Ip("link set far down\nlink set far name other\nlink set other up\n");
    Network::Ip("route add 10.1.0.0/24 dev other metric 2\n");
    Network::Ip("neighbour add 10.1.0.2 lladdr 02:00:00:00:00:02 dev other\n");
    Network::AwaitSending("other");
    const auto far = support::Received("far-end");
    SendLater(stream);
    EXPECT_EQ(support::Received("far-end"), far + 1);
    EXPECT_TRUE(Status().sending);
    // It goes while the socket is bound to it.
    Network::Ip("link delete other\n");
    SendLater(stream);
    SendLater(stream);
    EXPECT_EQ(Status().lastError, Code(ENODEV));
    EXPECT_EQ(Status().lastTried, Tried::kDevice);
    EXPECT_FALSE(Status().sending);
    EXPECT_EQ(support::Received("near-end"), near);
}

TEST_F(SendSettingsTest, AVrfHasItsOwnRoutesAndAddresses)
{
    try {
        Network::Ip("link add vrf-x type vrf table 100\nlink set vrf-x up\n");
    } catch (const std::runtime_error& error) {
        GTEST_SKIP() << "this kernel has no VRFs: " << error.what();
    }
    MakeTwoWays();
    Network::Ip("link set far master vrf-x\naddress add 10.1.0.9/24 dev far\n");
    Network::Ip("neighbour replace 10.1.0.2 lladdr 02:00:00:00:00:02 dev far\n");
    Network::AwaitSending("far");
    const auto far = support::Received("far-end");
    SendOne(Set(By("vrf-x"), "10.1.0.2"));
    EXPECT_EQ(support::Received("far-end"), far + 1);
    SendOne(Set({.sourceAddress = Address("10.1.0.9"), .device = "vrf-x"}, "10.1.0.2"));
    EXPECT_EQ(support::Received("far-end"), far + 2);
    SendOne(Set(From("10.1.0.9"), "10.1.0.2"));
    EXPECT_EQ(Status().lastTried, Tried::kSource) << "the VRF's address is not the machine's outside of it";
    SendOne(Set({.sourceAddress = Address("10.1.0.1"), .device = "vrf-x"}, "10.1.0.2"));
    EXPECT_EQ(Status().lastTried, Tried::kSource) << "nor the other way round";
    EXPECT_EQ(Status().lostDatagrams, 2U);
}

/// Runs the function in a thread whose kernel refuses this option of sockets.
template <typename Function>
void Without(int level, int option, Function function)
{
    std::thread([&] {
        const scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
        const auto is = [](unsigned argument, int value) {
            return scmp_arg_cmp{argument, SCMP_CMP_EQ, static_cast<scmp_datum_t>(value), 0};
        };
        EXPECT_EQ(0, seccomp_rule_add(filter, SCMP_ACT_ERRNO(EPERM), SCMP_SYS(setsockopt), 2, is(1, level),
                                      is(2, option)));
        EXPECT_EQ(0, seccomp_load(filter));
        seccomp_release(filter);
        function();
    }).join();
}

TEST_F(SendSettingsTest, NothingIsSentWithoutThePermissionToUseTheDevice)
{
    MakeTwoWays();
    const auto near = support::Received("near-end"), far = support::Received("far-end");
    Without(SOL_SOCKET, SO_BINDTODEVICE, [&] { SendOne(Set(By("far"), "10.1.0.2")); });
    EXPECT_EQ(Status().lastErrorText,
              "send by far to 10.1.0.2:6343: Operation not permitted (CAP_NET_RAW is missing)");
    EXPECT_EQ(Status().lastTried, Tried::kDevice);
    EXPECT_EQ(Status().lostDatagrams, 1U);
    EXPECT_EQ(support::Received("near-end"), near);
    EXPECT_EQ(support::Received("far-end"), far);
}

TEST_F(SendSettingsTest, TheDeviceTakesNoCapability)
{
    utsname kernel{};
    ASSERT_EQ(0, ::uname(&kernel));
    int major = 0, minor = 0;
    ASSERT_EQ(2, std::sscanf(kernel.release, "%d.%d", &major, &minor));
    if (std::pair(major, minor) < std::pair(5, 7)) GTEST_SKIP() << "this kernel asks for CAP_NET_RAW";
    MakeTwoWays();
    const auto far = support::Received("far-end");
    std::thread([&] {
        __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
        __user_cap_data_struct none[2]{};
        if (::syscall(SYS_capset, &header, none) != 0) return;
        SendOne(Set(By("far"), "10.1.0.2"));
        SendOne(Set(By("near"), "10.1.0.2"));
        SendOne(Set(By("far"), "10.1.0.2"));
    }).join();
    EXPECT_EQ(support::Received("far-end"), far + 2);
    EXPECT_EQ(Status().datagrams, 3U);
}

TEST_F(SendSettingsTest, NothingIsSentThatCanNotBeMarkedAsItShouldBe)
{
    Collector collector("127.0.0.2", 6343);
    Stream& stream = Set({});
    SendOne(stream);
    Without(IPPROTO_IP, IP_TOS, [&] {
        SendOne(Set({.dscp = 46}));
        SendLater(stream);
    });
    EXPECT_EQ(Status().lastErrorText, "send with DSCP 46 to 127.0.0.2:6343: Operation not permitted");
    EXPECT_EQ(Status().lastTried, Tried::kDscp);
    EXPECT_EQ(Status().lostDatagrams, 2U);
    SendLater(stream);
    const auto received = collector.TakeAll();
    EXPECT_THAT(DscpsOf(received), ElementsAre(0, 46));
    EXPECT_THAT(Sequences(received), ElementsAre(1, 4));
}

TEST_F(SendSettingsTest, SettingsThatAreSetTwiceAreSetOnce)
{
    Collector collector("127.0.0.2", 6343);
    const SendSettings send{.sourceAddress = Address("127.0.0.9"), .dscp = 10, .device = "lo"};
    Stream& stream = Set(send);
    SendOne(stream);
    const auto before = collector.Take(1);
    Put(stream, 1, 100);
    Set(send);
    EXPECT_THAT(collector.TakeAll(), IsEmpty()) << "nothing is sent for it";
    EXPECT_TRUE(Status().sending);
    SendOne(stream);
    const auto after = collector.Take(1);
    EXPECT_EQ(after.at(0).samples.size(), 2U);
    EXPECT_EQ(after.at(0).origin.port, before.at(0).origin.port);
}

TEST_F(SendSettingsTest, TheSubAgentIsThatOfTheNewSequences)
{
    Collector collector("127.0.0.2", 6343);
    Stream& stream = Set({});
    SendOne(stream);
    Put(stream, 1, 100);
    Export().Restart(4294967295U);
    SendOne(stream);
    SendOne(stream);
    const auto received = collector.Take(4);
    EXPECT_THAT(Sequences(received), ElementsAre(1, 2, 1, 2));
    EXPECT_EQ(received.at(1).subAgent, 0U);
    EXPECT_EQ(received.at(2).subAgent, 4294967295U);
}

}  // namespace
}  // namespace exporter_test
