// SPDX-License-Identifier: Apache-2.0
// Interfaces that come and go in hundreds, some of which the configuration names by name, alternative name or
// alias: sampling follows the names, what is sampled besides is not disturbed, and nothing is left of them in
// the process or in the machine.

#include <unistd.h>

#include <algorithm>
#include <functional>
#include <map>

#include "endurance/endurance_test.h"

namespace endurance {
namespace {

constexpr unsigned kInterfaces = 300;
constexpr unsigned kNamed = 40;  // f1 to f40 are configured by name

/// What the manager writes there while it attaches to many interfaces carries its process id.
constexpr const char* kExpedited = "/sys/kernel/rcu_expedited";
constexpr int kOurs = 0x5f000000;

int Expedited()
{
    const std::string text = support::ReadFile(kExpedited);
    return text.empty() ? 0 : std::stoi(text);
}

std::string Each(unsigned count, const std::function<std::string(const std::string& number)>& line)
{
    std::string lines;
    for (unsigned i = 1; i <= count; ++i) lines += line(std::to_string(i)) + "\n";
    return lines;
}

class Flood : public EnduranceTest, public testing::WithParamInterface<const char*> {
protected:
    void SetUp() override
    {
        EnduranceTest::SetUp();
        if (!IsSkipped()) Start(GetParam());
    }

    static void Create()
    {
        // All in one group, which can be deleted at once.
        Network::Ip(Each(kInterfaces, [](const std::string& n) {
            return "link add f" + n + " group 42 type veth peer name g" + n;
        }));
        // The kernel tells of these two only where the interface is up, or when it comes up.
        Network::Ip(
            "link set f101 up\nlink property add dev f101 altname alt-101\n"
            "link set f102 alias port/1/102\nlink set f102 up");
    }
    static void Delete() { Network::Run({"ip", "link", "delete", "group", "42"}); }

    [[nodiscard]] bool Sampled(const std::string& name) const
    {
        return m_numbers.OfInterface(name, "sampled") == 1;
    }
    void AwaitSampled(const std::string& what, const std::map<std::string, bool>& expected)
    {
        std::string wrong;
        const bool done = Becomes([&] {
            m_numbers = World().Numbers();
            wrong.clear();
            for (const auto& [name, sampled] : expected)
                if (Sampled(name) != sampled) wrong += " " + name;
            return wrong.empty();
        });
        if (!done) throw support::TimedOut(what + " did not happen in time:" + wrong);
    }
    [[nodiscard]] std::map<std::string, bool> All(bool sampled) const
    {
        std::map<std::string, bool> all{{"alt-101", sampled}, {"port/1/102", sampled}, {"p1", true}};
        for (unsigned i = 1; i <= kNamed; ++i) all["f" + std::to_string(i)] = sampled;
        return all;
    }
    [[nodiscard]] bool Means(const std::string& name, const std::string& device) const
    {
        return m_numbers.Has("sflow_interface_info{interface=\"" + name + "\",kernel_interface=\"" + device +
                             "\",ifindex=\"" + std::to_string(Network::Index(device)) + "\"}");
    }

private:
    support::Metrics m_numbers{""};
};

TEST_P(Flood, SamplingFollowsTheNamesAndNothingIsLeftBehind)
{
    DecodingCollector collector;
    std::vector<std::string> names{"alt-101", "port/1/102", "p1"};
    for (unsigned i = 1; i <= kNamed; ++i) names.push_back("f" + std::to_string(i));
    Configure(collector, names);
    const std::size_t descriptors = Descriptors();
    const auto before = Received("p1");
    BackgroundTraffic traffic("h1", NumberedFrames(1, 2), 1000, 0);
    const Network::Host elsewhere;
    std::size_t resident = 0;
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        Create();
        AwaitSampled("all to be sampled", All(true));
        EXPECT_TRUE(Means("alt-101", "f101"));
        EXPECT_TRUE(Means("port/1/102", "f102"));

        Network::Ip("link set f7 name other\nlink set f201 name f7");
        AwaitSampled("another to be sampled under the name", {{"f7", true}});
        Await("the other index", [&] {
            AwaitSampled("it", {{"f7", true}});
            return Means("f7", "f7");
        });
        const std::string pid = std::to_string(elsewhere.Pid());
        Network::Ip("link set f102 alias \"\"\nlink set f101 netns " + pid + "\nlink set f8 netns " + pid);
        AwaitSampled("those elsewhere not to be sampled",
                     {{"alt-101", false}, {"f8", false}, {"port/1/102", false}, {"f9", true}});
        // A veth goes with its other end, wherever that is.
        Delete();
        Network::Run({"ip", "link", "delete", "g101"});
        Network::Run({"ip", "link", "delete", "g8"});
        AwaitSampled("none to be sampled", All(false));
        if (round == 0) resident = ResidentKilobytes();
    }
    traffic.Stop();
    DecodingCollector::AwaitQuiet({&collector});
    EXPECT_TRUE(Becomes([&] { return Descriptors() <= descriptors; })) << Descriptors();
    ExpectResidentAtMost(resident + 1024);
    const auto frames = Received("p1") - before;
    const Flows flows = collector.Flows(Network::Index("p1"));
    if (std::string(GetParam()) == kPacketSocket) {
        // Closing one takes the kernel 10 ms and more, in which the manager does not look at the others: some
        // of what is sampled may find no room, and is counted.
        const auto lost =
            World().Numbers().At("sflow_interface_drops_total{interface=\"p1\",cause=\"buffer\"}");
        EXPECT_EQ(flows.size() + lost, frames);
        EXPECT_EQ(World().Numbers().OfInterface("p1", "packets_seen_total"), frames);
    } else {
        EXPECT_EQ(FaultInWhole(flows, frames, Pool::kExact), "") << "the port that stands by";
    }
    Await("the machine's switch to be left alone",
          [&] { return Expedited() != (kOurs | World().Manager().Pid()); });
    EXPECT_EQ(World().Manager().Terminate(), 0);
}

INSTANTIATE_TEST_SUITE_P(, Flood, testing::Values(kTcx, kPacketSocket),
                         [](const auto& row) { return TestName(row.param); });

class FloodKilled : public EnduranceTest {};

TEST_F(FloodKilled, KilledWhileItAttachesToManyTheNextStartTakesBackWhatItSetForTheMachine)
{
    Start(kTcx, {.arguments = {"--expedite-rcu"}});
    if (IsSkipped() || HasFatalFailure()) return;
    if (::access(kExpedited, W_OK) != 0) GTEST_SKIP() << kExpedited << " can't be written";
    constexpr unsigned kMany = 200;
    Network::Ip(
        Each(kMany, [](const std::string& n) { return "link add d" + n + " type veth peer name e" + n; }));
    const DecodingCollector collector;
    bool seen = false;
    for (int round = 0; round < 5 && !seen; ++round) {
        World().AddCollector("a", collector);
        for (unsigned i = 1; i <= kMany; ++i)
            Service().UpdateInterface({.name = "d" + std::to_string(i), .flowCollector = "a"});
        const int mark = kOurs | World().Manager().Pid();
        seen = Becomes([&] { return Expedited() == mark; }, std::chrono::milliseconds(500));
        World().Manager().Kill();
        World().StartManager();
        EXPECT_NE(Expedited(), mark);
        World().OpenSession();
    }
    if (!seen) GTEST_SKIP() << "another process has set " << kExpedited << " all the time";
    EXPECT_EQ(World().Manager().Terminate(), 0);
}

}  // namespace
}  // namespace endurance
