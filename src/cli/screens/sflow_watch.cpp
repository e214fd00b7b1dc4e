// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/sflow_watch.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

#include "cli/data/state_node.h"
#include "netconf/xml.h"

namespace cli {
namespace {

/// Looks that had samples, of which the mean length of a frame is taken.
constexpr std::size_t kLooks = 10;

std::uint64_t Counter(const Children& node, std::string_view leaf) { return node.Figure(leaf).value_or(0); }

std::string NameElement(const std::string& name)
{
    return name.empty() ? "<name/>" : "<name>" + netconf::Escaped(name) + "</name>";
}

std::string FirstProblem(const Children& entry)
{
    return entry.First("problem") ? entry.Value("problem") : "";
}

OfAll EntriesOf(const Children& sflow, std::string_view list, std::string_view leaf,
                const std::set<std::string_view>& no)
{
    OfAll count;
    sflow.ForEach(list, [&](const lyd_node* node) {
        ++count.all;
        if (!no.contains(Children(node).Value(leaf))) ++count.of;
    });
    return count;
}

}  // namespace

void SflowWatch::Turn(std::string name)
{
    m_name = std::move(name);
    m_kernelName.clear();
}

std::string SflowWatch::Filter() const
{
    const std::string named = NameElement(m_name);
    const bool ofInterfaces = m_list == "interface";
    std::string entry =
        named + (ofInterfaces ? "<packets-seen/><packets-sampled/><sampled-bytes/><packet-source/>"
                              : "<packets-sent/><flow-samples-sent/><counter-samples-sent/>"
                                "<sending/>");
    std::string more, problems = "<problem/>";
    if (!m_name.empty()) {
        problems = "<problem><subject>" + m_list + "</subject>" + named + "</problem>";
        if (ofInterfaces) entry += "<sampling-rate/><flow-collector/><counter-collector/><kernel-interface/>";
        if (!m_kernelName.empty())
            more += "<kernel-interface>" + NameElement(m_kernelName) + "<speed/></kernel-interface>";
    }
    if (ofInterfaces) more += "<collector><name/><sending/><problem/></collector>";
    return "<manager><session/><samples-per-second/><datagrams-per-second/></manager><" + m_list + ">" +
           entry + "<problem/></" + m_list + ">" + more + problems;
}

Watched SflowWatch::Look(const lyd_node* state, Time now)
{
    const Children sflow = Children(state).Of("oam").Of("sflow");
    Watched watched;
    watched.isKnown = !sflow.None();
    watched.name = m_name;
    watched.samplesPerSecond = sflow.Of("manager").Value("samples-per-second");
    watched.datagramsPerSecond = sflow.Of("manager").Value("datagrams-per-second");
    watched.sampling = EntriesOf(sflow, "interface", "packet-source", {"none", "-"});
    watched.receiving = EntriesOf(sflow, "collector", "sending", {"false", "-"});
    if (!m_begin) m_begin = now;
    std::set<std::string> there;
    sflow.ForEach(m_list, [&](const lyd_node* node) {
        watched.entries.push_back(LookAt(Children(node), now));
        there.insert(watched.entries.back().name);
    });
    if (m_name.empty() && watched.isKnown)
        std::erase_if(m_known, [&](const auto& known) { return !there.contains(known.first); });
    std::ranges::sort(watched.entries, NaturallyBefore, &WatchedEntry::name);
    watched.causes = CausesOf(sflow);
    std::map<std::string, Severity> worst;
    std::set<std::string> named;
    for (const Cause& cause : watched.causes) {
        for (const std::string& name : cause.names) {
            if (cause.subject == m_list) worst.try_emplace(name, cause.severity);
            if (cause.severity != Severity::kBroken) continue;
            std::string label = cause.subject == name ? name : cause.subject + " " + name;
            if (named.insert(label).second) watched.broken.push_back(std::move(label));
        }
    }
    for (WatchedEntry& entry : watched.entries)
        if (const auto found = worst.find(entry.name); found != worst.end()) entry.severity = found->second;
    if (!m_name.empty()) LookAtOne(sflow, watched);
    return watched;
}

void SflowWatch::LookAtOne(const Children& sflow, Watched& watched)
{
    const Children entry(sflow.First(m_list));
    watched.samplingRate = entry.Value("sampling-rate");
    m_kernelName = entry.First("kernel-interface") ? entry.Value("kernel-interface") : "";
    watched.speed = sflow.Of("kernel-interface").Figure("speed");
    std::set<std::string> its;
    for (const char* list : {"flow-collector", "counter-collector"})
        entry.ForEach(list, [&](const lyd_node* node) { its.insert(lyd_get_value(node)); });
    sflow.ForEach("collector", [&](const lyd_node* node) {
        const Children collector(node);
        if (its.erase(collector.Value("name")) != 0)
            watched.collectors.push_back(
                {collector.Value("name"), collector.Value("sending") == "true", FirstProblem(collector)});
    });
    for (const std::string& name : its) watched.collectors.push_back({name, false, ""});
    std::ranges::sort(watched.collectors, NaturallyBefore, &WatchedCollector::name);
}

SflowWatch::Counts SflowWatch::CountsOf(const Children& entry) const
{
    if (m_list == "interface")
        return {Counter(entry, "packets-seen"), Counter(entry, "packets-sampled"),
                entry.Figure("sampled-bytes")};
    return {Counter(entry, "packets-sent"),
            Counter(entry, "flow-samples-sent") + Counter(entry, "counter-samples-sent"),
            {}};
}

WatchedEntry SflowWatch::LookAt(const Children& entry, Time now)
{
    WatchedEntry shown{entry.Value("name"), {}, FirstProblem(entry), {}};
    const Counts counts = CountsOf(entry);
    const auto [found, isNew] = m_known.try_emplace(shown.name);
    Known& known = found->second;
    if (!isNew) shown.rates = RatesOf(known, counts, now);
    known.counts = counts;
    known.at = now;
    known.history.Add(Second(now), shown.rates.packets);
    return shown;
}

Rates SflowWatch::RatesOf(Known& known, const Counts& counts, Time now)
{
    const double passed = std::chrono::duration<double>(now - known.at).count();
    const auto rate = [passed](std::uint64_t before, std::uint64_t after) -> std::optional<std::uint64_t> {
        if (after < before || passed <= 0) return std::nullopt;  // counted anew
        return static_cast<std::uint64_t>(std::llround(static_cast<double>(after - before) / passed));
    };
    const Counts& before = known.counts;
    Rates rates{rate(before.packets, counts.packets), rate(before.samples, counts.samples), {}};
    if (!counts.bytes) return rates;
    if (before.bytes && counts.samples > before.samples && *counts.bytes > *before.bytes) {
        known.sampled.emplace_back(counts.samples - before.samples, *counts.bytes - *before.bytes);
        if (known.sampled.size() > kLooks) known.sampled.pop_front();
    }
    double samples = 0, bytes = 0;
    for (const auto& [someSamples, theirBytes] : known.sampled) {
        samples += static_cast<double>(someSamples);
        bytes += static_cast<double>(theirBytes);
    }
    constexpr double kBits = 8;
    if (rates.packets && (*rates.packets == 0 || samples > 0))
        rates.bits =
            *rates.packets == 0
                ? 0
                : static_cast<std::uint64_t>(static_cast<double>(*rates.packets) * bytes / samples * kBits);
    return rates;
}

std::int64_t SflowWatch::Second(Time time) const
{
    return m_begin ? std::llround(std::chrono::duration<double>(time - *m_begin).count()) : 0;
}

std::vector<RateHistory::Rate> SflowWatch::HistoryOf(const std::string& name, Time now) const
{
    const auto found = m_known.find(name);
    if (found == m_known.end()) return std::vector<RateHistory::Rate>(RateHistory::kSeconds);
    return found->second.history.Until(Second(now));
}

}  // namespace cli
