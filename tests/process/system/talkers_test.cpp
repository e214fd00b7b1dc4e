// SPDX-License-Identifier: Apache-2.0
// The flows that carry most at an interface, asked for over NETCONF while real packets are sampled there.

#include <chrono>
#include <csignal>
#include <thread>

#include "netconf/requests.h"
#include "support/poll.h"
#include "system/own_settings.h"

namespace system_tests {
namespace {

struct Seen {
    std::uint64_t countedFor = 0, samples = 0;
    std::vector<std::string> talkers;  // "source destination protocol samples"
};

class TopTalkers : public OwnSettings {
protected:
    void SetUp() override
    {
        OwnSettings::SetUp();
        if (!IsSkipped()) Start();
    }

    netconf::Reply Ask(const std::string& interface)
    {
        auto client = netconf::Client::Connect(m_world->NetconfSocket());
        return client.Call(netconf::SflowTopTalkers(interface));
    }

    static std::string Between(const std::string& text, const std::string& name)
    {
        const auto begin = text.find("<" + name + ">");
        if (begin == std::string::npos) return {};
        const auto from = begin + name.size() + 2;
        return text.substr(from, text.find("</" + name + ">", from) - from);
    }

    Seen Look(const std::string& interface = "busy")
    {
        const auto reply = Ask(interface);
        EXPECT_TRUE(reply.ok) << reply.xml;
        Seen seen;
        seen.countedFor = std::stoull("0" + reply.output.at("counted-for"));
        seen.samples = std::stoull("0" + reply.output.at("samples"));
        std::string rest = reply.xml;
        for (auto at = rest.find("<talker"); at != std::string::npos; at = rest.find("<talker")) {
            rest = rest.substr(at + 1);
            seen.talkers.push_back(Between(rest, "source") + " " + Between(rest, "destination") + " " +
                                   Between(rest, "protocol") + " " + Between(rest, "samples"));
        }
        return seen;
    }

    std::string Refusal(const std::string& interface)
    {
        const auto reply = Ask(interface);
        EXPECT_FALSE(reply.ok) << reply.xml;
        return reply.errors.empty() ? "" : reply.errors.front().message;
    }
};

TEST_F(TopTalkers, AreToldInOrderWithWhatWasSampled)
{
    EXPECT_EQ(Look().countedFor, 0U);
    std::vector<support::Bytes> frames(30, support::UdpFrame({.source = "198.51.100.7", .size = 100}));
    frames.insert(frames.end(), 10, support::UdpFrame({.source = "198.51.100.8", .size = 1000}));
    frames.insert(frames.end(), 3, support::EthernetFrame(1, 2, 0x88B5, 100));
    Injector("far-end").Send(frames);
    Seen seen;
    support::Await("the samples of all", [&] {
        seen = Look();
        return seen.samples == frames.size();
    });
    EXPECT_THAT(seen.talkers,
                testing::ElementsAre("198.51.100.8 198.51.100.2 udp 10", "198.51.100.7 198.51.100.2 udp 30",
                                     "02:00:00:00:00:01 02:00:00:00:00:02 0x88b5 3"));
    EXPECT_GT(seen.countedFor, 0U);
    const auto interface = Sflow().at("interface").at(0);
    EXPECT_GE(std::stoull(interface.at("sampled-bytes").get<std::string>()),
              30 * 104U + 10 * 1004U + 3 * 104U);
}

TEST_F(TopTalkers, AreCountedAnewWhenNoLookCameForAWhile)
{
    Look();
    support::Await("the counting to go on", [&] { return Look().countedFor > 100; });
    std::this_thread::sleep_for(std::chrono::seconds(7));  // what is measured is that nothing happens
    EXPECT_EQ(Look().countedFor, 0U);
}

TEST_F(TopTalkers, OfWhatIsNotSampledAreRefusedWithTheReason)
{
    EXPECT_THAT(Refusal("nothing"), testing::HasSubstr("there is no interface nothing in effect"));
    m_world->CliDone("set oam sflow interface away sampling-rate 10 flow-sampling-collector c1; commit");
    EXPECT_THAT(Refusal("away"),
                testing::HasSubstr("no packets are sampled at interface away; show sflow interface"));
    Look();
    Network::Ip("link delete busy");
    support::Await("the interface to be gone", [&] { return !Ask("busy").ok; });
    EXPECT_THAT(Refusal("busy"), testing::HasSubstr("no packets are sampled at interface busy"));
}

TEST_F(TopTalkers, OfAManagerThatStandsStillAreAnErrorAndOthersGoOn)
{
    m_world->Manager().Signal(SIGSTOP);
    std::string refusal;
    std::thread asking([&] { refusal = Refusal("busy"); });
    auto other = netconf::Client::Connect(m_world->NetconfSocket());
    EXPECT_TRUE(other.Call(netconf::GetConfig("running")).ok);
    asking.join();
    EXPECT_THAT(refusal, testing::HasSubstr("sflow-mgr"));
    m_world->Manager().Signal(SIGCONT);
    support::Await("an answer", [&] { return Ask("busy").ok; });
}

}  // namespace
}  // namespace system_tests
