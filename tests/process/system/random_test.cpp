// SPDX-License-Identifier: Apache-2.0
// Random commits while random processes are killed: whatever happens, the manager ends with what the
// configuration says. The seed is fixed, and printed with every failure.

#include <chrono>
#include <random>
#include <thread>
#include <utility>

#include "system/system_test.h"

namespace system_tests {

namespace {

constexpr unsigned kSteps = 40;

class Random : public SystemTest, public testing::WithParamInterface<unsigned> {
protected:
    Random() = default;
    /// Commits may have several "enabled", some of which the daemon leaves out.
    struct Several {};
    explicit Random(Several /*enabled*/) : SystemTest(Resynced()), m_severalEnabled(true) {}

    static WorldOptions Resynced()
    {
        WorldOptions options;
        options.resyncAfter = 1;
        return options;
    }

    unsigned Draw(unsigned below) { return std::uniform_int_distribution<unsigned>(0, below - 1)(m_engine); }

    std::string Collector() { return "c" + std::to_string(Draw(4)); }
    std::string Interface()
    {
        return (Draw(2) == 0 ? "eth" : "gigabit-ethernet-1/") + std::to_string(Draw(4));
    }

    // One edit. At most one "enabled" a commit, where nothing is sent again: of two, the daemon attaches the
    // later one only.
    std::string Edit(bool& enabledDrawn)
    {
        if (m_severalEnabled) enabledDrawn = false;
        const auto list = std::string(Draw(2) == 0 ? " flow" : " counter") + "-sampling-collector ";
        switch (Draw(9)) {
        case 0:
            return "set oam sflow collector " + Collector() + " ip 198.51.100." + std::to_string(Draw(9) + 1);
        case 1:  // anew in the same commit, it would have a changed "enabled" too
            if (std::exchange(enabledDrawn, true)) return {};
            return "delete oam sflow collector " + Collector();
        case 2:
            if (std::exchange(enabledDrawn, true)) return {};
            return "set oam sflow collector " + Collector() + " enabled " + (Draw(2) == 0 ? "true" : "false");
        case 3:
            return "set oam sflow interface " + Interface() + " sampling-rate " + std::to_string(Draw(5) + 1);
        case 4:
            return "set oam sflow interface " + Interface() + " default-sampling-rate " +
                   std::to_string(Draw(5) + 1);
        case 5:
            return "delete oam sflow interface " + Interface();
        case 6:
            return "set oam sflow interface " + Interface() + list + Collector();
        case 7:
            return "delete oam sflow interface " + Interface() + list + Collector();
        default:
            return Draw(3) == 0 ? "delete oam sflow agent ipv4"
                                : "set oam sflow agent ipv4 192.0.2." + std::to_string(Draw(9) + 1);
        }
    }

    // A few edits, each on its own (many are refused, which is a case too), and a commit.
    void Step()
    {
        bool enabledDrawn = false;
        for (unsigned edits = Draw(4) + 1; edits > 0; --edits)
            if (const auto edit = Edit(enabledDrawn); !edit.empty()) TheWorld().Cli(edit);
        for (int more = m_severalEnabled ? 3 : 0; more > 0; --more)
            TheWorld().Cli("set oam sflow collector " + Collector() + " enabled " +
                           (Draw(3) == 0 ? "false" : "true"));
        if (TheWorld().Cli("commit").status != 0) TheWorld().CliDone("discard");
    }

    void KillOne()
    {
        switch (Draw(3)) {
        case 0:
            TheWorld().Cdbd().Kill();
            TheWorld().StartCdbd();
            break;
        case 1:
            TheWorld().Manager().Kill();
            TheWorld().StartManager();
            break;
        default:
            TheWorld().Daemon().Kill();
            TheWorld().StartDaemon();
        }
    }

private:
    std::mt19937 m_engine{GetParam()};
    bool m_severalEnabled = false;
};

class Healing : public Random {
protected:
    Healing() : Random(Several()) {}
};

TEST_P(Healing, TheManagerBecomesWhatTheConfigurationSays)
{
    TheWorld().Start(scenario::Usual());
    std::string all;
    for (const char* c : {"0", "1", "2", "3"})
        all += "set oam sflow collector c" + std::string(c) + " ip 192.0.2." + c + ";";
    for (const char* i : {"eth0", "eth1", "gigabit-ethernet-1/2"})
        for (const char* c : {"0", "1", "2", "3"})
            all += "set oam sflow interface " + std::string(i) + " flow-sampling-collector c" + c + ";";
    TheWorld().CliDone(all + "commit");
    for (unsigned step = 0; step < kSteps / 2; ++step) {
        SCOPED_TRACE("seed " + std::to_string(GetParam()) + ", step " + std::to_string(step));
        Step();
        AwaitSettled();
    }
    AwaitSettled();
}

TEST_P(Healing, OfTwoCollectorsEnabledInOneCommitAllAttachmentsComeAndThenAllIsQuiet)
{
    TheWorld().Start(scenario::Usual());
    TheWorld().CliDone(
        "set oam sflow collector a ip 192.0.2.1; set oam sflow collector b ip 192.0.2.2;"
        "set oam sflow collector a enabled false; set oam sflow collector b enabled false;"
        "set oam sflow interface x flow-sampling-collector a; set oam sflow interface y "
        "flow-sampling-collector b;"
        "commit; set oam sflow collector a enabled true; set oam sflow collector b enabled true; commit");
    AwaitSettled();
    // The load of the new session does not count as a change.
    const std::size_t calls = TheWorld().ManagerJournal().All().size();
    std::this_thread::sleep_for(std::chrono::seconds(3));
    EXPECT_EQ(calls, TheWorld().ManagerJournal().All().size());
}

INSTANTIATE_TEST_SUITE_P(Seed, Healing, testing::Values(3U));

TEST_P(Random, CommitsReachTheManagerWhole)
{
    TheWorld().Start(scenario::Usual());
    for (unsigned step = 0; step < kSteps; ++step) {
        SCOPED_TRACE("seed " + std::to_string(GetParam()) + ", step " + std::to_string(step));
        Step();
        AwaitSettled();
    }
}

TEST_P(Random, CommitsAndKillsEndWithWhatTheConfigurationSays)
{
    TheWorld().Start(scenario::Usual());
    for (unsigned step = 0; step < kSteps / 2; ++step) {
        SCOPED_TRACE("seed " + std::to_string(GetParam()) + ", step " + std::to_string(step));
        Step();
        if (Draw(3) == 0) KillOne();
        if (Draw(2) == 0) AwaitSettled();
    }
    AwaitSettled();
}

INSTANTIATE_TEST_SUITE_P(Seed, Random, testing::Values(1U, 2U));

}  // namespace

}  // namespace system_tests
