// SPDX-License-Identifier: Apache-2.0
// The lines at the top of the full screen, and the help.
#include <algorithm>
#include <array>

#include "base/text.h"
#include "cli/screens/watch_parts.h"

namespace cli {
namespace {

std::string TextOf(const OfAll& count, const std::string& what)
{
    return std::to_string(count.of) + " of " + std::to_string(count.all) + " " + what;
}

StyledLine BrokenLine(const Watched& watched, std::size_t width)
{
    const Cause& first = watched.causes.front();
    // Behind ";" stands the remedy, which show sflow problems has.
    const std::string reason = first.text.substr(0, first.text.find(';'));
    const std::string text =
        std::to_string(watched.broken.size()) + " broken: " + first.Label() + ": " + reason;
    return {{Cut(base::Printable(text), width), {Tone::kBroken, true, false}}};
}

}  // namespace

std::string Fitting(const std::vector<std::string>& texts, std::size_t width)
{
    for (const std::string& text : texts)
        if (Width(text) <= width) return text;
    return Cut(texts.back(), width);
}

StyledLines HealthLines(const WatchScene& scene, const WatchView& view, std::size_t width)
{
    StyledLines lines;
    const Watched& watched = scene.watched;
    const bool isLive = scene.failure.empty() && watched.isKnown;
    const std::string flow =
        isLive ? watched.samplesPerSecond + " samples/s  " + watched.datagramsPerSecond + " datagrams/s"
               : std::string();
    const std::string what =
        view.inside.empty() ? std::string("sFlow") : scene.watch.List() + " " + view.inside;
    const std::string paused = scene.pausedSince.empty() ? "" : "paused since " + scene.pausedSince;
    const std::size_t room = width - std::min(width, Width(scene.time) + kGap);
    StyledLine title{{Fitting({what + "  " + scene.host, what, CutFront(view.inside, room)}, room), kBold},
                     {"  " + (paused.empty() ? scene.time : ""), kBold}};
    if (!paused.empty()) title.push_back({paused, {Tone::kPlain, true, true}});
    lines.push_back(std::move(title));
    if (isLive) {
        const std::string sampling =
            view.inside.empty() ? "  " + TextOf(watched.sampling, "ports sampling") : std::string();
        const auto receiving = [&](const char* they) {
            return scene.watch.List() == "interface" ? "  " + TextOf(watched.receiving, they) : std::string();
        };
        lines.push_back({{Fitting({flow + sampling + receiving("collectors receiving"),
                                   flow + sampling + receiving("receiving"), flow + sampling, flow},
                                  width),
                          kPlain}});
    }
    if (!scene.failure.empty())
        lines.push_back(
            {{Cut(base::Printable("no figures: " + scene.failure), width), {Tone::kBroken, true, false}}});
    else if (view.inside.empty() && !watched.broken.empty())
        lines.push_back(BrokenLine(watched, width));
    return lines;
}

StyledLines HelpLines()
{
    static constexpr std::array kHelp = {
        "q         leaves, or goes back from one port",
        "Up Down   select a port; PgUp PgDn Home End",
        "Enter     looks into it: history, collectors, top talkers",
        "Esc       goes back; clears the filter",
        "s         sorts by name, packets, bits, samples; broken first",
        "/         filters by a part of the name",
        "p         pauses, and goes on",
        "",
        "Rates are of the last second. bits/s are packets of the mean",
        "length of the last samples. Bars compare ports. The history",
        "is that of packets/s in 60 s, of each port's highest.",
        "",
        "Any key goes back.",
    };
    StyledLines lines{{{"Keys of monitor sflow", kBold}}, {}};
    for (const char* line : kHelp) lines.push_back({{line, kPlain}});
    return lines;
}

}  // namespace cli
