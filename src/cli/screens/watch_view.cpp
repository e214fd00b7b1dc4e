// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/watch_view.h"

#include <algorithm>
#include <array>
#include <tuple>

namespace cli {
namespace {

constexpr std::size_t kLongestFilter = 64;  // as a name

const std::optional<std::uint64_t>& SortFigure(const WatchedEntry& entry, SortOrder order)
{
    if (order == SortOrder::kBits) return entry.rates.bits;
    return order == SortOrder::kSamples ? entry.rates.samples : entry.rates.packets;
}

bool IsBroken(const WatchedEntry& entry) { return entry.severity == Severity::kBroken; }

bool StandsBefore(const WatchedEntry& one, const WatchedEntry& other, SortOrder order)
{
    if (IsBroken(one) != IsBroken(other)) return IsBroken(one);
    if (order != SortOrder::kName) {
        const auto& ones = SortFigure(one, order);
        const auto& others = SortFigure(other, order);
        if (ones != others) return ones > others;  // nullopt is less than any
    }
    return NaturallyBefore(one.name, other.name);
}

void TypeFilter(WatchView& view, const KeyPress& press)
{
    if (press.key == Key::kEnter) {
        view.filters = false;
    } else if (press.key == Key::kEscape) {
        view.filters = false;
        view.filter.clear();
    } else if (press.key == Key::kBackspace) {
        // Of a character of several bytes all go.
        while (!view.filter.empty()) {
            const auto last = static_cast<unsigned char>(view.filter.back());
            view.filter.pop_back();
            if ((last & 0xC0U) != 0x80U) break;
        }
    } else if (press.key == Key::kCharacter && view.filter.size() < kLongestFilter) {
        view.filter += press.text;
    }
    view.selected.clear();
}

void Select(WatchView& view, const Rows& rows, std::size_t row)
{
    if (!rows.empty()) view.selected = rows[std::min(row, rows.size() - 1)]->name;
}

void Move(WatchView& view, Key key, const Rows& rows, std::size_t page)
{
    const std::size_t at = SelectedRow(rows, view);
    page = std::max<std::size_t>(page, 1);
    switch (key) {
    case Key::kUp:
        return Select(view, rows, at - std::min<std::size_t>(at, 1));
    case Key::kDown:
        return Select(view, rows, at + 1);
    case Key::kPageUp:
        return Select(view, rows, at - std::min(at, page));
    case Key::kPageDown:
        return Select(view, rows, at + page);
    case Key::kHome:
        return Select(view, rows, 0);
    case Key::kEnd:
        return Select(view, rows, rows.size());
    default:
        return;
    }
}

void GoBack(WatchView& view)
{
    view.left = view.inside.empty() || view.beganInside;
    view.inside.clear();
    view.paused = false;
}

}  // namespace

std::string NameOf(SortOrder order)
{
    static constexpr std::array kNames = {"name", "packets", "bits", "samples"};
    return kNames.at(static_cast<std::size_t>(order));
}

Rows RowsOf(const Watched& watched, const WatchView& view)
{
    Rows rows;
    for (const WatchedEntry& entry : watched.entries)
        if (entry.name.find(view.filter) != std::string::npos) rows.push_back(&entry);
    std::ranges::sort(rows, [&](const WatchedEntry* one, const WatchedEntry* other) {
        return StandsBefore(*one, *other, view.order);
    });
    return rows;
}

std::size_t SelectedRow(const Rows& rows, const WatchView& view)
{
    const auto found =
        std::ranges::find_if(rows, [&](const WatchedEntry* entry) { return entry->name == view.selected; });
    return found == rows.end() ? 0 : static_cast<std::size_t>(found - rows.begin());
}

std::size_t TopRow(const Rows& rows, const WatchView& view, std::size_t height)
{
    const std::size_t at = SelectedRow(rows, view);
    std::size_t first = std::min(view.first, rows.size() - std::min(rows.size(), height));
    if (at < first) first = at;
    if (height > 0 && at >= first + height) first = at - height + 1;
    return first;
}

void OnKey(WatchView& view, const KeyPress& press, const Rows& rows, std::size_t page)
{
    if (press.key == Key::kInterrupt) {
        view.left = true;
        return;
    }
    if (press.key == Key::kOther) return;
    if (view.helps) {
        view.helps = false;
        return;
    }
    if (view.filters) return TypeFilter(view, press);
    const bool isInside = !view.inside.empty();
    const char typed = press.key == Key::kCharacter && press.text.size() == 1 ? press.text.front() : '\0';
    if (typed == 'q') return GoBack(view);
    if (press.key == Key::kEscape) {
        // It never leaves the command: it may be the begin of a key that came in pieces.
        if (isInside && !view.beganInside)
            GoBack(view);
        else
            view.filter.clear();
    } else if (typed == 'h' || typed == '?') {
        view.helps = true;
    } else if (typed == 'p') {
        view.paused = !view.paused;
    } else if (isInside) {
        return;
    } else if (typed == 's') {
        constexpr int kOrders = 4;
        view.order = static_cast<SortOrder>((static_cast<int>(view.order) + 1) % kOrders);
    } else if (typed == '/') {
        view.filters = true;
    } else if (press.key == Key::kEnter) {
        if (rows.empty()) return;
        view.inside = rows[SelectedRow(rows, view)]->name;
        view.selected = view.inside;
        view.paused = false;
    } else {
        Move(view, press.key, rows, page);
    }
    if (!isInside) view.first = TopRow(rows, view, page);
}

}  // namespace cli
