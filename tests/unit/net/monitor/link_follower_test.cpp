// SPDX-License-Identifier: Apache-2.0
// The mirror below the loop, whose queue can be made small, and its sockets broken, against the kernel in a
// network namespace of the test's own.

#include "net/monitor/link_follower.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/asio/io_context.hpp>

#include "base/worker.h"
#include "net/link_recorder.h"
#include "net/routes/kernel_routes.h"
#include "support/broken_file.h"
#include "support/network.h"

namespace net {
namespace {

using support::Network;
using testing::IsEmpty;

struct Followed {
    Links links;
    Bridges bridges;
    boost::asio::io_context loop;  // never run: no speed is ever known
    const std::unique_ptr<base::Worker> worker = base::MakeWorker(loop);
    int told = 0;
    LinkFollower follower{
        links,
        bridges,
        std::make_shared<LinkSpeeds>(),
        *worker,
        {[this](const Link&, const Placement&) { ++told; }, [this](std::uint32_t) { ++told; }}};

    /// Again where changes that the kernel still has to tell of disturb it.
    void Synchronise()
    {
        for (int tries = 0; tries == 0 || (tries < 20 && follower.NeedsSynchronise()); ++tries) {
            follower.Synchronise();
            while (follower.Turn() || follower.Synchronising()) continue;
        }
    }
};

class LinkFollowerTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (const auto why = Network::WhyNot(); !why.empty()) GTEST_SKIP() << why;
        m_network.emplace();
    }
    std::optional<Network> m_network;
};

TEST_F(LinkFollowerTest, HearsOnlyDifferencesAfterALoss)
{
    Network::Veth("v0", "v1");
    Network::MakeBridge("br0", {"v0"});
    Followed followed;
    followed.follower.SetReceiveBuffer(4096);
    followed.Synchronise();
    ASSERT_FALSE(followed.follower.NeedsSynchronise());
    LinkRecorder recorder;
    followed.links.AddObserver(recorder);

    const std::string v1 = std::to_string(Network::Index("v1"));
    const std::string v0 = std::to_string(Network::Index("v0"));
    std::string lines;
    for (int i = 0; i < 100; ++i) lines += "link set br0 alias x" + std::to_string(i) + "\n";
    Network::Ip(lines);
    Network::Ip("link set br0 alias \"\"\nlink del v0\nlink add fresh type bridge");
    while (followed.follower.Turn()) continue;
    ASSERT_TRUE(followed.follower.NeedsSynchronise());
    recorder.Taken();
    followed.Synchronise();
    EXPECT_FALSE(followed.follower.NeedsSynchronise());
    auto told = recorder.Taken();
    EXPECT_THAT(told, testing::IsSupersetOf({"removed " + v0 + " v0", "removed " + v1 + " v1"}));
    EXPECT_NE(followed.links.Find("fresh"), nullptr);
    EXPECT_EQ(followed.links.Find("br0")->alias, "");
    EXPECT_EQ(followed.bridges.FindPort(static_cast<std::uint32_t>(std::stoul(v0))), nullptr);

    followed.Synchronise();
    EXPECT_THAT(recorder.Taken(), IsEmpty());
}

TEST_F(LinkFollowerTest, AKernelThatCannotAnswerIsAskedAgain)
{
    Network::MakeBridge("br0", {});
    Followed followed;
    const auto isGivenUp = [&] {
        return !followed.follower.Turn() && !followed.follower.Synchronising() &&
               followed.follower.NeedsSynchronise();
    };
    {
        const support::BrokenFile broken(followed.follower.Descriptor());
        EXPECT_FALSE(followed.follower.Turn());
        followed.follower.Synchronise();
        EXPECT_TRUE(isGivenUp());
    }
    // Also where it fails in the middle of the answers.
    followed.follower.Synchronise();
    followed.follower.Turn();
    {
        const support::BrokenFile broken(followed.follower.Descriptor());
        followed.follower.Synchronise();
        EXPECT_TRUE(isGivenUp());
    }
    followed.Synchronise();
    EXPECT_FALSE(followed.follower.NeedsSynchronise());
    EXPECT_NE(followed.links.Find("br0"), nullptr);
}

// A worker that works when it is told to.
class SlowWorker final : public base::Worker {
public:
    std::shared_ptr<void> Do(std::function<void()> work, std::function<void()> done) override
    {
        m_tasks.emplace_back(std::move(work), std::move(done));
        return std::make_shared<int>(0);
    }
    /// False if there was nothing to do.
    bool DoOne()
    {
        if (m_tasks.empty()) return false;
        const auto [work, done] = std::move(m_tasks.front());
        m_tasks.pop_front();
        work();
        done();
        return true;
    }

private:
    std::deque<std::pair<std::function<void()>, std::function<void()>>> m_tasks;
};

TEST_F(LinkFollowerTest, DumpsBesideTheLoopInTheOrderOfTheChanges)
{
    Network::Veth("v0", "v1");
    Network::MakeBridge("br0", {"v0"});
    const std::string v1 = std::to_string(Network::Index("v1"));
    Links links;
    Bridges bridges;
    SlowWorker worker;
    LinkFollower follower{
        links, bridges, std::make_shared<LinkSpeeds>(), worker, {[](auto&&...) {}, [](auto&&...) {}}};
    follower.DumpBeside([&] { follower.Turn(); });
    follower.Synchronise();
    EXPECT_FALSE(follower.Turn());
    EXPECT_EQ(links.Find("br0"), nullptr) << "the loop has asked for nothing";
    Network::Ip("link set br0 alias first");
    EXPECT_FALSE(follower.Turn()) << "nor taken anything";
    while (worker.DoOne()) continue;
    EXPECT_FALSE(follower.Synchronising());
    ASSERT_NE(links.Find("br0"), nullptr);
    EXPECT_EQ(links.Find("br0")->alias, "first");
    EXPECT_NE(bridges.FindPort(Network::Index("v0")), nullptr);

    // What comes while it asks again is taken after it, and from then on in the loop.
    LinkRecorder recorder;
    links.AddObserver(recorder);
    follower.Synchronise();
    follower.Turn();
    Network::Ip("link set br0 alias second\nlink del v0");
    while (follower.Synchronising() && worker.DoOne()) continue;
    EXPECT_THAT(recorder.Taken(), testing::Contains("removed " + v1 + " v1"));
    EXPECT_EQ(links.Find("br0")->alias, "second");
    Network::Ip("link set br0 alias third");
    while (follower.Turn()) continue;
    EXPECT_EQ(links.Find("br0")->alias, "third");
}

TEST_F(LinkFollowerTest, AKernelThatCannotAnswerTheWorkerIsAskedAgain)
{
    Network::MakeBridge("br0", {});
    Links links;
    Bridges bridges;
    SlowWorker worker;
    LinkFollower follower{
        links, bridges, std::make_shared<LinkSpeeds>(), worker, {[](auto&&...) {}, [](auto&&...) {}}};
    int turns = 0;
    follower.DumpBeside([&] { ++turns; });
    follower.Synchronise();
    {
        const support::BrokenFile broken(follower.Descriptor());
        EXPECT_FALSE(follower.Turn());
        EXPECT_TRUE(worker.DoOne());
    }
    EXPECT_EQ(turns, 1);
    EXPECT_TRUE(!follower.Synchronising() && follower.NeedsSynchronise());
    follower.Synchronise();
    do follower.Turn();
    while (worker.DoOne());
    EXPECT_FALSE(follower.Synchronising() || follower.NeedsSynchronise());
    EXPECT_NE(links.Find("br0"), nullptr);
}

TEST_F(LinkFollowerTest, LearnedAddressesThatWentUnheardAreSwept)
{
    Network::Veth("v0", "v1");
    Network::MakeBridge("br0", {"v0"});
    Network::Bridge(
        "fdb add 02:00:00:00:00:09 dev v0 master static\n"
        "fdb add 02:00:00:00:00:0a dev v0 master static");
    Followed followed;
    followed.follower.SetReceiveBuffer(4096);
    followed.Synchronise();
    const BridgePort* port = followed.bridges.FindPort(Network::Index("v0"));
    ASSERT_NE(port, nullptr);
    const MacAddress ninth{2, 0, 0, 0, 0, 9};
    const MacAddress tenth{2, 0, 0, 0, 0, 10};
    ASSERT_NE(Bridges::FindAddress(*port->bridge, 0, ninth.data()), nullptr);
    std::string lines;
    for (int i = 0; i < 100; ++i) lines += "link set br0 alias x" + std::to_string(i) + "\n";
    Network::Ip(lines);
    Network::Bridge("fdb del 02:00:00:00:00:09 dev v0 master");
    while (followed.follower.Turn()) continue;
    ASSERT_TRUE(followed.follower.NeedsSynchronise());
    ASSERT_NE(Bridges::FindAddress(*port->bridge, 0, ninth.data()), nullptr);
    followed.Synchronise();
    EXPECT_EQ(Bridges::FindAddress(*port->bridge, 0, ninth.data()), nullptr);
    EXPECT_NE(Bridges::FindAddress(*port->bridge, 0, tenth.data()), nullptr);
}

TEST_F(LinkFollowerTest, RoutesThatCannotBeHeardOfCountAsChanged)
{
    int routes = 0;
    int rules = 0;
    RouteFollower follower({[&] { ++routes; }, [&] { ++rules; }});
    follower.Turn();
    EXPECT_EQ(routes, 0);
    {
        const support::BrokenFile broken(follower.Descriptor());
        follower.Turn();
    }
    EXPECT_EQ(routes, 1);
    EXPECT_EQ(rules, 1);
    Network::Ip("address add 192.0.2.1/32 dev lo");
    follower.Turn();
    EXPECT_EQ(routes, 2);
    EXPECT_EQ(rules, 1);
}

}  // namespace
}  // namespace net
