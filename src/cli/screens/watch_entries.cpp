// SPDX-License-Identifier: Apache-2.0
// The rows of ports: figures, a bar, and the last minute; as many columns as have room.
#include <algorithm>

#include "base/text.h"
#include "cli/screens/scaled.h"
#include "cli/screens/watch_parts.h"

namespace cli {
namespace {

constexpr std::size_t kMarker = 2;
constexpr std::size_t kPacketsWidth = 9;
constexpr std::size_t kBitsWidth = 7;
constexpr std::size_t kSamplesWidth = 9;
constexpr std::size_t kLeastName = 12;
constexpr std::size_t kLeastBar = 8;
constexpr std::size_t kMostBar = 24;

/// Widths; 0 is left out.
struct EntryColumns {
    std::size_t name = 0, bits = 0, samples = 0, bar = 0, history = 0;
    [[nodiscard]] std::size_t Tail() const
    {
        return (bar == 0 ? 0 : bar + kGap) + (history == 0 ? 0 : history + kGap);
    }
};

EntryColumns ColumnsOf(std::size_t width, std::size_t longestName)
{
    EntryColumns columns;
    // The name has its share before the other columns, and what they leave.
    const std::size_t share = std::max(kLeastName, width * 2 / 5);
    columns.name = std::clamp(longestName, kLeastName, share);
    std::size_t room = width - std::min(width, kMarker + kPacketsWidth + kGap + columns.name);
    const auto take = [&room](std::size_t wanted) {
        const bool fits = wanted != 0 && room >= wanted + kGap;
        if (fits) room -= wanted + kGap;
        return fits ? wanted : 0;
    };
    columns.bits = take(kBitsWidth);
    columns.samples = take(kSamplesWidth);
    const std::size_t bar = kLeastBar + kGap;
    columns.history = take(HistoryWidth(room - std::min(room, kGap)));
    if (room < bar && columns.history > 0) {
        // A shorter history beside a bar tells more than a longer one alone.
        room += columns.history + kGap;
        columns.history = take(HistoryWidth(room - std::min(room, kGap + bar)));
        if (columns.history == 0) columns.history = take(HistoryWidth(room - std::min(room, kGap)));
    }
    if (room >= bar) columns.bar = take(std::min(room - kGap, kMostBar));
    if (longestName > columns.name) columns.name += std::min(room, longestName - columns.name);
    return columns;
}

StyledLine EntryHeading(const EntryColumns& columns, std::size_t rows)
{
    std::string line = "  " + ToLeft(rows == 1 ? "port" : "ports " + std::to_string(rows), columns.name) +
                       "  " + ToRight("packets/s", kPacketsWidth);
    if (columns.bits != 0) line += "  " + ToRight("bits/s", columns.bits);
    if (columns.samples != 0) line += "  " + ToRight("samples/s", columns.samples);
    if (columns.bar != 0) line += "  " + ToLeft("", columns.bar);
    if (columns.history != 0) line += "  " + ToLeft("60 s", columns.history);
    line.erase(line.find_last_not_of(' ') + 1);
    return {{line, kBold}};
}

std::string Figures(const Rates& rates, const EntryColumns& columns)
{
    std::string text = ToRight(Scaled(rates.packets), kPacketsWidth);
    if (columns.bits != 0) text += "  " + ToRight(Scaled(rates.bits), columns.bits);
    if (columns.samples != 0) text += "  " + ToRight(Scaled(rates.samples), columns.samples);
    return text;
}

class EntryRow {
public:
    EntryRow(const WatchScene& scene, const EntryColumns& columns, std::uint64_t highest, Charset charset)
        : m_scene(scene), m_columns(columns), m_highest(highest), m_charset(charset)
    {
    }

    [[nodiscard]] StyledLine Line(const WatchedEntry& entry, bool selected, std::size_t width) const
    {
        // A figure of before is none of now.
        const Rates rates = m_scene.failure.empty() ? entry.rates : Rates{};
        const std::string name =
            (selected ? "> " : "  ") +
            ToLeft(CutFront(base::Printable(entry.name), m_columns.name), m_columns.name) + "  ";
        StyledLine line;
        const bool hasReason = entry.severity && *entry.severity != Severity::kIdle && !entry.problem.empty();
        if (!hasReason) {
            line = {{name + Figures(rates, m_columns) + Marks(entry, rates), kPlain}};
        } else {
            const TextStyle style = StyleOf(*entry.severity);
            // Where there is no room beside the figures, the reason takes their place.
            const bool beside = m_columns.Tail() >= Width(entry.problem) + kGap;
            line = {{name, style},
                    {beside ? Figures(rates, m_columns) + "  " : "", kPlain},
                    {entry.problem, style}};
        }
        if (!selected) return line;
        for (StyledText& text : line) text.style.reverse = true;
        const std::size_t taken = Width(line);
        if (taken < width) line.push_back({std::string(width - taken, ' '), {Tone::kPlain, false, true}});
        return line;
    }

private:
    [[nodiscard]] std::string Marks(const WatchedEntry& entry, const Rates& rates) const
    {
        std::string text;
        if (m_columns.bar != 0)
            text += "  " + Bar(rates.packets.value_or(0), m_highest, m_columns.bar, m_charset);
        if (m_columns.history != 0)
            text += "  " + HistoryLine(m_scene.watch.HistoryOf(entry.name, m_scene.now), m_columns.history,
                                       m_charset);
        return text;
    }

    const WatchScene& m_scene;
    const EntryColumns& m_columns;
    std::uint64_t m_highest;
    Charset m_charset;
};

}  // namespace

StyledLines EntryLines(const WatchScene& scene, const WatchView& view, const Rows& rows, ScreenSize size,
                       Charset charset)
{
    const std::size_t height = size.rows - std::min<std::size_t>(size.rows, 1);
    const std::size_t top = TopRow(rows, view, height);
    const std::size_t end = std::min(rows.size(), top + height);
    std::size_t longest = 0;
    std::uint64_t highest = 0;
    for (const WatchedEntry* entry : rows) {
        longest = std::max(longest, Width(entry->name));
        highest = std::max(highest, entry->rates.packets.value_or(0));
    }
    const EntryColumns columns = ColumnsOf(size.columns, longest);
    const EntryRow row(scene, columns, highest, charset);
    const std::size_t selected = SelectedRow(rows, view);
    StyledLines lines{EntryHeading(columns, rows.size())};
    for (std::size_t i = top; i < end; ++i) lines.push_back(row.Line(*rows[i], i == selected, size.columns));
    if (rows.empty() && scene.watched.isKnown)
        lines.push_back(
            {{scene.watched.entries.empty() ? "  no interface is in effect"
                                            : "  no name has \"" + base::Printable(view.filter) + "\"",
              kPlain}});
    return lines;
}

}  // namespace cli
