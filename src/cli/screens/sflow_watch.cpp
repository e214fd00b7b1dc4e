// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/sflow_watch.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <utility>

#include <nlohmann/json.hpp>

#include "base/number.h"
#include "base/text.h"
#include "cli/data/state_node.h"
#include "cli/screens/sflow_problems.h"
#include "netconf/xml.h"

namespace cli {
namespace {

using Object = nlohmann::ordered_json;

std::uint64_t Number(const Children& node, std::string_view leaf)
{
    return base::ToNumber<std::uint64_t>(node.Value(leaf)).value_or(0);
}

std::string Shown(const std::optional<std::uint64_t>& rate) { return rate ? std::to_string(*rate) : "-"; }

Object AsNumber(const std::optional<std::uint64_t>& rate) { return rate ? Object(*rate) : Object(nullptr); }

std::string Dump(const Object& object)
{
    return object.dump(-1, ' ', false, Object::error_handler_t::replace);
}

}  // namespace

std::string SflowWatch::Filter() const
{
    const std::string named = m_name.empty() ? "<name/>" : "<name>" + netconf::Escaped(m_name) + "</name>";
    const std::string counts = m_list == "interface"
                                   ? "<packets-seen/><packets-sampled/>"
                                   : "<packets-sent/><flow-samples-sent/><counter-samples-sent/>";
    const std::string problems =
        m_name.empty() ? "<problem/>" : "<problem><subject>" + m_list + "</subject>" + named + "</problem>";
    return "<manager><session/><samples-per-second/><datagrams-per-second/></manager><" + m_list + ">" +
           named + counts + "<problem/></" + m_list + ">" + problems;
}

Watched SflowWatch::Look(const lyd_node* state, std::chrono::steady_clock::time_point now)
{
    const Children sflow = Children(state).Of("oam").Of("sflow");
    Watched watched;
    watched.isKnown = !sflow.None();
    watched.samplesPerSecond = sflow.Of("manager").Value("samples-per-second");
    watched.datagramsPerSecond = sflow.Of("manager").Value("datagrams-per-second");
    const auto passed = std::chrono::duration<double>(now - std::exchange(m_lastTime, now)).count();
    const auto rate = [passed](std::uint64_t before, std::uint64_t after) -> std::optional<std::uint64_t> {
        if (after < before || passed <= 0) return std::nullopt;  // counted anew
        return static_cast<std::uint64_t>(static_cast<double>(after - before) / passed + 0.5);
    };
    std::map<std::string, Counts> counts;
    sflow.ForEach(m_list, [&](const lyd_node* node) {
        const Children entry(node);
        const Counts counted =
            m_list == "interface"
                ? Counts{Number(entry, "packets-seen"), Number(entry, "packets-sampled")}
                : Counts{Number(entry, "packets-sent"),
                         Number(entry, "flow-samples-sent") + Number(entry, "counter-samples-sent")};
        WatchedEntry shown{entry.Value("name"), {}, entry.First("problem") ? entry.Value("problem") : ""};
        if (const auto last = m_last.find(shown.name); last != m_last.end())
            shown.rates = {rate(last->second.packets, counted.packets),
                           rate(last->second.samples, counted.samples)};
        counts.emplace(shown.name, counted);
        watched.entries.push_back(std::move(shown));
    });
    m_last = std::move(counts);
    std::ranges::sort(watched.entries, NaturallyBefore, &WatchedEntry::name);
    sflow.ForEach("problem", [&](const lyd_node* node) {
        const Children problem(node);
        const std::string subject = problem.Value("subject");
        const std::string name = subject == "agent" ? subject : subject + " " + problem.Value("name");
        if (problem.Value("severity") == "broken" &&
            std::ranges::find(watched.broken, name) == watched.broken.end())
            watched.broken.push_back(name);
    });
    return watched;
}

std::string SflowWatch::Text(const Watched& watched, std::string_view time) const
{
    if (!watched.isKnown) return FailedText("the sFlow manager does not answer", time);
    std::string line(time);
    const char* const unit = m_list == "interface" ? " packets/s" : " datagrams/s";
    if (m_name.empty()) {
        std::optional<std::uint64_t> packets;
        for (const WatchedEntry& entry : watched.entries)
            if (entry.rates.packets) packets = packets.value_or(0) + *entry.rates.packets;
        line += "  " + Shown(packets) + " packets/s  " + watched.samplesPerSecond + " samples/s  " +
                watched.datagramsPerSecond + " datagrams/s";
        line += watched.broken.empty() ? "  nothing broken"
                                       : "  " + std::to_string(watched.broken.size()) + " broken, first " +
                                             watched.broken.front();
    } else if (watched.entries.empty()) {
        line += "  there is no " + m_list + " " + m_name + " in the state";
    }
    if (!m_name.empty())
        for (const WatchedEntry& entry : watched.entries)
            line += "  " + entry.name + "  " + Shown(entry.rates.packets) + unit + "  " +
                    Shown(entry.rates.samples) + " samples/s  " +
                    (entry.problem.empty() ? "ok" : entry.problem);
    return base::Printable(line);
}

std::string SflowWatch::Json(const Watched& watched, std::string_view time) const
{
    if (!watched.isKnown) return FailedJson("the sFlow manager does not answer", time);
    Object object{{"time", time}};
    object["samples-per-second"] = base::ToNumber<std::uint64_t>(watched.samplesPerSecond).value_or(0);
    object["datagrams-per-second"] = base::ToNumber<std::uint64_t>(watched.datagramsPerSecond).value_or(0);
    object["broken"] = watched.broken;
    Object& entries = object[m_list] = Object::array();
    for (const WatchedEntry& entry : watched.entries) {
        Object one{{"name", entry.name}};
        one[m_list == "interface" ? "packets-per-second" : "datagrams-per-second"] =
            AsNumber(entry.rates.packets);
        one["samples-per-second"] = AsNumber(entry.rates.samples);
        if (!entry.problem.empty()) one["problem"] = entry.problem;
        entries.push_back(std::move(one));
    }
    return Dump(object);
}

std::string FailedText(const std::string& why, std::string_view time)
{
    return base::Printable(std::string(time) + "  not known: " + why);
}

std::string FailedJson(const std::string& why, std::string_view time)
{
    return Dump(Object{{"time", time}, {"error", why}});
}

}  // namespace cli
