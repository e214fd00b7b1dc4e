// SPDX-License-Identifier: Apache-2.0
// One port or collector in full: figures, what is wrong, the last minute, and who sends most.
#include <algorithm>
#include <sstream>

#include "base/text.h"
#include "cli/screens/fact_list.h"
#include "cli/screens/scaled.h"
#include "cli/screens/watch_parts.h"

namespace cli {
namespace {

std::string FiguresOf(const WatchScene& scene, const Rates& rates)
{
    if (scene.watch.List() != "interface")
        return Scaled(rates.packets) + " datagrams/s  " + Scaled(rates.samples) + " samples/s";
    std::string text = Scaled(rates.packets) + " packets/s  " + Scaled(rates.bits) + " bits/s";
    const auto& speed = scene.watched.speed;
    constexpr double kPercent = 100;
    if (speed && *speed != 0) {
        if (rates.bits)
            text += fmt::format(", {:.1f} % of ",
                                static_cast<double>(*rates.bits) * kPercent / static_cast<double>(*speed));
        else
            text += " of ";
        text += Scaled(*speed);
    }
    text += "  " + Scaled(rates.samples) + " samples/s";
    if (scene.watched.samplingRate != "-" && !scene.watched.samplingRate.empty())
        text += "  1 in " + scene.watched.samplingRate;
    return text;
}

void AddCauses(const std::vector<Cause>& causes, std::size_t width, StyledLines& lines)
{
    for (const Cause& cause : causes) {
        FactList facts;
        facts.Add(cause.severity == Severity::kBroken ? "broken"
                  : cause.severity == Severity::kOff  ? "off"
                                                      : "idle",
                  cause.Sentence(width));
        std::istringstream wrapped(facts.Text(0, width));
        for (std::string line; std::getline(wrapped, line);)
            lines.push_back({{line, StyleOf(cause.severity)}});
    }
}

void AddCollectors(const Watched& watched, StyledLines& lines)
{
    if (watched.collectors.empty()) return;
    StyledLine line{{"Collectors", kBold}};
    for (const WatchedCollector& collector : watched.collectors) {
        line.push_back({line.size() == 1 ? "  " : ", ", kPlain});
        const std::string state = collector.receives          ? " receiving"
                                  : collector.problem.empty() ? " not receiving"
                                                              : " " + collector.problem;
        line.push_back({base::Printable(collector.name) + state,
                        collector.receives && collector.problem.empty() ? kPlain : kWarningStyle});
    }
    lines.push_back(std::move(line));
}

void AddGraph(const WatchScene& scene, const std::string& name, ScreenSize size, Charset charset,
              StyledLines& lines)
{
    constexpr std::size_t kScale = 6;
    const auto rates = scene.watch.HistoryOf(name, scene.now);
    const std::size_t room = size.columns - std::min(size.columns, kScale + kGap);
    // With room for it, a second has several columns.
    const std::size_t width = room >= RateHistory::kSeconds
                                  ? room / RateHistory::kSeconds * RateHistory::kSeconds
                                  : HistoryWidth(room);
    const std::vector<std::string> graph = HistoryGraph(rates, width, size.rows, charset);
    for (std::size_t i = 0; i < graph.size(); ++i) {
        const std::string scale = i == 0                  ? Scaled(Highest(rates))
                                  : i + 1 == graph.size() ? std::string("0")
                                                          : std::string();
        lines.push_back({{ToRight(scale, kScale) + "  " + graph[i], kPlain}});
    }
    const std::string begin = "60 s ago";
    const std::string end = "now";
    if (width > Width(begin) + Width(end))
        lines.push_back(
            {{std::string(kScale + kGap, ' ') + begin + ToRight(end, width - Width(begin)), kPlain}});
}

}  // namespace

StyledLines InsideLines(const WatchScene& scene, const WatchView& view, ScreenSize size, Charset charset)
{
    const auto found = std::ranges::find(scene.watched.entries, view.inside, &WatchedEntry::name);
    StyledLines lines;
    if (found == scene.watched.entries.end()) {
        if (scene.failure.empty() && scene.watched.isKnown && scene.watched.name == view.inside)
            lines.push_back(
                {{"there is no " + scene.watch.List() + " " + base::Printable(view.inside) + " in the state",
                  kWarningStyle}});
        if (scene.watched.name == view.inside) AddCauses(scene.watched.causes, size.columns, lines);
        return lines;
    }
    const bool isOfOne = scene.watched.name == view.inside;
    lines.push_back({{FiguresOf(scene, scene.failure.empty() ? found->rates : Rates{}), kBold}});
    const bool isLive = scene.failure.empty();
    if (isOfOne && isLive) AddCauses(scene.watched.causes, size.columns, lines);
    if (isOfOne && isLive) AddCollectors(scene.watched, lines);
    constexpr std::size_t kLeastGraph = 3, kMostGraph = 10, kGraphShare = 3;
    const std::size_t graph = std::clamp(size.rows / kGraphShare, kLeastGraph, kMostGraph);
    if (lines.size() + graph < size.rows) AddGraph(scene, found->name, {size.columns, graph}, charset, lines);
    if (scene.watch.List() != "interface" || !isLive || lines.size() >= size.rows) return lines;
    for (std::string& line : TalkerLines(scene.talkers, size.columns, size.rows - lines.size()))
        lines.push_back({{std::move(line), kPlain}});
    return lines;
}

}  // namespace cli
