// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/talkers.h"

#include <algorithm>
#include <utility>

#include "base/text.h"
#include "cli/screens/counted.h"
#include "cli/screens/scaled.h"
#include "cli/screens/styled_line.h"

namespace cli {
namespace {

/// 192.0.2.1:80, [2001:db8::1]:80.
std::string EndPoint(const Children& talker, const std::string& address, const std::string& port)
{
    const std::string text = talker.Value(address);
    if (!talker.First(port)) return text;
    // A colon is in IPv6's addresses; MAC addresses have no ports.
    const bool isIpv6 = text.find(':') != std::string::npos;
    return (isIpv6 ? "[" + text + "]" : text) + ":" + talker.Value(port);
}

std::string TalkersHeading(const Talkers& talkers)
{
    std::string text = "Top talkers";
    if (!talkers.countedForMs) return text;
    return text + ", " + Counted(talkers.samples, "sample") + " in " +
           fmt::format("{:.1f} s", static_cast<double>(*talkers.countedForMs) / 1000.0);
}

}  // namespace

Talkers TalkersOf(const Children& output)
{
    Talkers talkers;
    talkers.countedForMs = output.Figure("counted-for").value_or(0);
    talkers.samples = output.Figure("samples").value_or(0);
    output.ForEach("talker", [&](const lyd_node* node) {
        const Children talker(node);
        talkers.list.push_back({base::Printable(EndPoint(talker, "source", "source-port")),
                                base::Printable(EndPoint(talker, "destination", "destination-port")),
                                base::Printable(talker.Value("protocol")),
                                talker.Figure("packets-per-second").value_or(0),
                                talker.Figure("bits-per-second").value_or(0)});
    });
    return talkers;
}

std::vector<std::string> TalkerLines(const Talkers& talkers, std::size_t width, std::size_t height)
{
    if (height == 0) return {};
    std::vector<std::string> lines{Cut(TalkersHeading(talkers), width)};
    if (!talkers.problem.empty() || talkers.list.empty()) {
        const std::string why = !talkers.problem.empty() ? talkers.problem
                                : talkers.countedForMs   ? "no samples yet"
                                                         : "asked for";
        if (height > 1) lines.push_back(Cut("  " + base::Printable(why), width));
        return lines;
    }
    constexpr std::size_t kRate = 9;
    constexpr std::size_t kProtocol = 8;
    std::size_t from = 0, to = 0;
    for (const Talker& talker : talkers.list) {
        from = std::max(from, Width(talker.source));
        to = std::max(to, Width(talker.destination));
    }
    const std::size_t fixed = 2 * (kRate + kGap) + kProtocol + 2 * kGap;
    const std::size_t room = width - std::min(width, fixed);
    if (from + to > room) from = to = room / 2;
    const auto line = [&](const std::string& bits, const std::string& packets, const std::string& protocol,
                          const std::string& source, const std::string& destination) {
        std::string text = ToRight(bits, kRate) + ToRight(packets, kRate + kGap) + "  " +
                           ToLeft(protocol, kProtocol) + "  " + ToLeft(CutFront(source, from), from) + "  " +
                           CutFront(destination, to);
        text.erase(text.find_last_not_of(' ') + 1);
        return Cut(text, width);
    };
    if (height > 1) lines.push_back(line("bits/s", "packets/s", "protocol", "from", "to"));
    for (const Talker& talker : talkers.list) {
        if (lines.size() == height) break;
        lines.push_back(line(Scaled(talker.bits), Scaled(talker.packets), talker.protocol, talker.source,
                             talker.destination));
    }
    return lines;
}

}  // namespace cli
