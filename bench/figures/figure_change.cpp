// SPDX-License-Identifier: Apache-2.0
// Figure 1: a change of one interface's rate costs the same on every size of switch.

#include <stdexcept>
#include <string>
#include <vector>

#include "figures/figures.h"
#include "figures/measured_switch.h"
#include "figures/references.h"
#include "figures/switch_data.h"
#include "netconf/client.h"
#include "netconf/requests.h"

namespace figures {

namespace {

constexpr std::size_t kWarmUp = 20;

// Disables and enables a collector; milliseconds of each.
void MeasureEnabled(MeasuredSwitch& target, std::size_t runs, Table& table)
{
    const auto calls = UsersOf(0, target.Interfaces()) + 1;
    std::vector<double> times;
    for (std::size_t run = 0; run < runs; ++run)
        times.push_back(target.TimedCommit(EnabledXml(0, run % 2 == 1), calls));
    table.Plain("1 a collector's enabled, N = " + std::to_string(target.Interfaces()), Median(times), "ms");
}

/// The same change with a subscriber to all events (RFC 5277) and without, turn by turn.
void MeasureSubscribed(MeasuredSwitch& target, std::size_t runs, Table& table)
{
    std::vector<double> alone;
    std::vector<double> subscribed;
    for (std::size_t run = 0; run < runs * 4 + kWarmUp; ++run) {
        const auto rate = 4000 + run % 1000;
        const double without = target.TimedCommit(RateXml(run % target.Interfaces(), rate), 1);
        auto subscriber = netconf::Client::Connect(target.World().NetconfSocket());
        if (!subscriber.Call(netconf::CreateSubscription()).ok)
            throw std::runtime_error("no subscription is given");
        const double with = target.TimedCommit(RateXml(run % target.Interfaces(), rate + 1000), 1);
        while (subscriber.ReceiveMessage().find("netconf-config-change") == std::string::npos) {
        }
        if (run < kWarmUp) continue;
        alone.push_back(without);
        subscribed.push_back(with);
    }
    table.Plain("1 one rate with a subscriber to events, N = " + std::to_string(target.Interfaces()),
                Median(subscribed), "ms");
    table.AtMost("1 ratio of that to the same without", Median(subscribed) / Median(alone), 1.15, "");
}

/// One edit of the shared candidate, and opening a private one with the same edit, turn by turn.
void MeasurePrivate(MeasuredSwitch& target, std::size_t runs, Table& table)
{
    std::vector<double> shared;
    std::vector<double> own;
    for (std::size_t run = 0; run < runs * 4 + kWarmUp; ++run) {
        const auto edit = netconf::EditConfig(RateXml((run * 37) % target.Interfaces(), 5000 + run % 1000));
        const Stopwatch ofShared;
        target.Do(edit);
        const double sharedTime = ofShared.Milliseconds();
        target.Do(netconf::DiscardChanges());
        const Stopwatch ofOwn;
        target.Do(netconf::OpenPrivateCandidate());
        target.Do(edit);
        const double ownTime = ofOwn.Milliseconds();
        target.Do(netconf::DiscardChanges());  // else closing warns
        target.Do(netconf::ClosePrivateCandidate());
        if (run < kWarmUp) continue;
        shared.push_back(sharedTime);
        own.push_back(ownTime);
    }
    const std::string size = ", N = " + std::to_string(target.Interfaces());
    table.Plain("1 one rate edited in the shared candidate" + size, Median(shared), "ms");
    table.Plain("1 a private candidate opened and the same edited" + size, Median(own), "ms");
    table.AtMost("1 that beyond the edit of the shared one" + size, Median(own) - Median(shared), 1.0, "ms");
}

}  // namespace

void MeasureChange(const Settings& settings, Table& table)
{
    MeasuredSwitch small(settings.few);
    MeasuredSwitch large(settings.many);
    OneRowStore store(large.World().Dir() / "one-row");
    std::vector<double> smallTimes;
    std::vector<double> largeTimes;
    std::vector<double> storeTimes;
    // Turn by turn, so that all three see the same disk.
    for (std::size_t run = 0; run < settings.runs * 4 + kWarmUp; ++run) {
        const auto rate = 2000 + run % 1000;
        const double one = small.TimedCommit(RateXml(run % settings.few, rate), 1);
        const double other = large.TimedCommit(RateXml((run * 37) % settings.many, rate), 1);
        const double row = store.TimedCommit();
        if (run < kWarmUp) continue;
        smallTimes.push_back(one);
        largeTimes.push_back(other);
        storeTimes.push_back(row);
    }
    const double reference = Median(storeTimes);
    table.Plain("1 one durable one-row LMDB commit", reference, "ms");
    table.Plain("1 one rate, N = " + std::to_string(settings.few), Median(smallTimes), "ms");
    table.Plain("1 one rate, N = " + std::to_string(settings.many), Median(largeTimes), "ms");
    table.AtMost("1 ratio of the two", Median(largeTimes) / Median(smallTimes), 1.3, "");
    table.AtMost("1 one rate beyond the LMDB commit, N = " + std::to_string(settings.few),
                 Median(smallTimes) - reference, 1.5, "ms");
    table.AtMost("1 one rate beyond the LMDB commit, N = " + std::to_string(settings.many),
                 Median(largeTimes) - reference, 1.5, "ms");
    MeasureEnabled(small, settings.runs, table);
    MeasureEnabled(large, settings.runs, table);
    MeasureSubscribed(small, settings.runs, table);
    MeasurePrivate(large, settings.runs, table);
}

}  // namespace figures
