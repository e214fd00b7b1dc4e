// SPDX-License-Identifier: Apache-2.0
// A look as one line: text or JSON.
#include <algorithm>

#include <nlohmann/json.hpp>

#include "base/number.h"
#include "base/text.h"
#include "cli/screens/scaled.h"
#include "cli/screens/sflow_watch.h"
#include "cli/screens/text_width.h"

namespace cli {
namespace {

using Object = nlohmann::ordered_json;

Object AsNumber(const std::optional<std::uint64_t>& rate) { return rate ? Object(*rate) : Object(nullptr); }

std::string OneLine(const Object& object)
{
    return object.dump(-1, ' ', false, Object::error_handler_t::replace);
}

/// "broken: collector c1, interface p3 +12 more", with as many as have room; empty if none has.
std::string BrokenNames(const std::vector<std::string>& broken, std::size_t room)
{
    std::string text;
    std::string names = "broken: ";
    for (std::size_t i = 0; i < broken.size(); ++i) {
        names += (i == 0 ? "" : ", ") + broken[i];
        if (Width(names) > room) break;
        const std::size_t left = broken.size() - i - 1;
        const std::string all = names + (left == 0 ? "" : " +" + std::to_string(left) + " more");
        if (Width(all) <= room) text = all;
    }
    return text;
}

}  // namespace

std::string SflowWatch::TextOfAll(const Watched& watched, std::string_view time, std::size_t width) const
{
    std::optional<std::uint64_t> packets;
    for (const WatchedEntry& entry : watched.entries)
        if (entry.rates.packets) packets = packets.value_or(0) + *entry.rates.packets;
    const std::string flow =
        std::string(time) + "  " + Scaled(packets) + " packets/s  " + watched.samplesPerSecond + " samples/s";
    const std::string datagrams = "  " + watched.datagramsPerSecond + " datagrams/s";
    if (watched.broken.empty()) return Cut(flow + datagrams + "  nothing broken", width);
    // What is broken matters more than how many datagrams leave.
    for (const std::string& begin : {flow + datagrams + "  ", flow + "  "}) {
        const std::string names = BrokenNames(watched.broken, width - std::min(width, Width(begin)));
        if (!names.empty()) return begin + names;
    }
    return Cut(flow + "  " + std::to_string(watched.broken.size()) + " broken", width);
}

std::string SflowWatch::Text(const Watched& watched, std::string_view time, std::size_t width) const
{
    if (!watched.isKnown) return FailedText("the sFlow manager does not answer", time, width);
    if (m_name.empty()) return TextOfAll(watched, time, width);
    const std::string begin = std::string(time) + "  ";
    if (watched.entries.empty())
        return Cut(base::Printable(begin + "there is no " + m_list + " " + m_name + " in the state"), width);
    const WatchedEntry& entry = watched.entries.front();
    const bool ofInterfaces = m_list == "interface";
    std::string figures = "  " + Scaled(entry.rates.packets) + (ofInterfaces ? " packets/s" : " datagrams/s");
    if (ofInterfaces) figures += "  " + Scaled(entry.rates.bits) + " bits/s";
    figures +=
        "  " + Scaled(entry.rates.samples) + " samples/s  " + (entry.problem.empty() ? "ok" : entry.problem);
    const std::size_t taken = Width(begin) + Width(figures);
    constexpr std::size_t kLeastName = 8;
    return Cut(begin + Cut(entry.name, std::max(kLeastName, width - std::min(width, taken))) + figures,
               width);
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
        if (m_list == "interface") one["bits-per-second"] = AsNumber(entry.rates.bits);
        one["samples-per-second"] = AsNumber(entry.rates.samples);
        if (!entry.problem.empty()) one["problem"] = entry.problem;
        entries.push_back(std::move(one));
    }
    return OneLine(object);
}

std::string FailedText(const std::string& why, std::string_view time, std::size_t width)
{
    return Cut(base::Printable(std::string(time) + "  not known: " + why), width);
}

std::string FailedJson(const std::string& why, std::string_view time)
{
    return OneLine(Object{{"time", time}, {"error", why}});
}

}  // namespace cli
