// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/watch_screen.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <utility>

#include "cli/screens/watch_parts.h"

namespace cli {
namespace {

/// "a  b  c", with as many from the begin as have room, and the last in any case.
std::string Joined(std::initializer_list<std::string> texts, const std::string& last, std::size_t width)
{
    std::string joined;
    for (const std::string& text : texts)
        if (Width(joined) + Width(text) + Width(last) + 2 * kGap <= width) joined += text + "  ";
    return Cut(joined + last, width);
}

StyledLine Footer(const WatchView& view, const Rows& rows, std::size_t all, std::size_t width)
{
    if (view.filters)
        return {{Cut("filter: " + view.filter + "_  Enter keeps it, Esc clears it", width), kBold}};
    if (!view.inside.empty())
        return {{view.beganInside ? Joined({"p pause"}, "h help  q quit", width)
                                  : Joined({"Esc back", "p pause"}, "h help  q back", width),
                 kBold}};
    std::string begin;
    if (!view.filter.empty())
        begin = "\"" + view.filter + "\": " + std::to_string(rows.size()) + " of " + std::to_string(all);
    const std::string sorted = "s sort: " + NameOf(view.order);
    const std::string last = "h help  q quit";
    return {{begin.empty() ? Joined({sorted, "/ filter", "Enter look into", "p pause"}, last, width)
                           : Joined({begin, sorted, "/ filter", "Enter look into", "p pause"}, last, width),
             kBold}};
}

StyledLines TooSmall(ScreenSize size)
{
    if (size.rows == 0) return {};
    return {{{Cut("too small: " + std::to_string(kLeastScreen.columns) + "x" +
                      std::to_string(kLeastScreen.rows) + " is needed; q quits",
                  size.columns),
              kBold}}};
}

}  // namespace

std::size_t RowsOfEntries(const WatchScene& scene, ScreenSize size)
{
    // The heading, and the line of keys.
    constexpr std::size_t kAround = 2;
    const std::size_t taken = HealthLines(scene, {}, size.columns).size() + kAround;
    return size.rows - std::min(size.rows, taken);
}

std::vector<StyledLine> WatchScreen(const WatchScene& scene, const WatchView& view, ScreenSize size,
                                    Charset charset)
{
    if (size.columns < kLeastScreen.columns || size.rows < kLeastScreen.rows) return TooSmall(size);
    StyledLines lines;
    Rows rows;
    if (view.helps) {
        lines = HelpLines();
    } else {
        lines = HealthLines(scene, view, size.columns);
        const ScreenSize left{size.columns, size.rows - lines.size() - 1};
        if (view.inside.empty()) rows = RowsOf(scene.watched, view);
        StyledLines body = view.inside.empty() ? EntryLines(scene, view, rows, left, charset)
                                               : InsideLines(scene, view, left, charset);
        std::ranges::move(body, std::back_inserter(lines));
    }
    lines.resize(view.helps ? std::min(lines.size(), size.rows) : size.rows - 1);
    if (!view.helps) lines.push_back(Footer(view, rows, scene.watched.entries.size(), size.columns));
    for (StyledLine& line : lines) line = Cut(std::move(line), size.columns);
    return lines;
}

}  // namespace cli
