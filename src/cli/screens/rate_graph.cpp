// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/rate_graph.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

namespace cli {
namespace {

/// Marks from the empty one to the full one.
struct Marks {
    std::vector<std::string_view> of;
    [[nodiscard]] std::size_t Steps() const { return of.size() - 1; }
};

const Marks& MarksOf(Charset charset)
{
    static const Marks kBlocks{{" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"}};
    static const Marks kAscii{{" ", ".", ":", "|"}};
    return charset == Charset::kUtf8 ? kBlocks : kAscii;
}

/// Of so many steps; at least one unless the part is 0.
std::size_t Steps(std::uint64_t part, std::uint64_t whole, std::size_t steps)
{
    if (part == 0 || whole == 0) return 0;
    const double share = std::min(1.0, static_cast<double>(part) / static_cast<double>(whole));
    return std::max<std::size_t>(1,
                                 static_cast<std::size_t>(std::llround(share * static_cast<double>(steps))));
}

/// The rates as `width` columns.
std::vector<RateHistory::Rate> Spans(const std::vector<RateHistory::Rate>& rates, std::size_t width)
{
    std::vector<RateHistory::Rate> columns(width);
    for (std::size_t column = 0; column < width; ++column) {
        const std::size_t begin = column * rates.size() / width;
        const std::size_t end = std::max(begin + 1, (column + 1) * rates.size() / width);
        for (std::size_t i = begin; i < end && i < rates.size(); ++i)
            if (rates[i]) columns[column] = std::max(columns[column].value_or(0), *rates[i]);
    }
    return columns;
}

}  // namespace

std::string Bar(std::uint64_t part, std::uint64_t whole, std::size_t width, Charset charset)
{
    // A half of a character is a mark of its own.
    constexpr std::size_t kHalves = 2;
    const std::size_t halves = Steps(part, whole, width * kHalves);
    const bool isUtf8 = charset == Charset::kUtf8;
    std::string bar;
    for (std::size_t i = 0; i < width; ++i)
        if (halves >= (i + 1) * kHalves)
            bar += isUtf8 ? "█" : "#";
        else if (halves == i * kHalves + 1)
            bar += isUtf8 ? "▌" : "-";
        else
            bar += ' ';
    return bar;
}

std::size_t HistoryWidth(std::size_t room)
{
    for (const std::size_t width : {60U, 30U, 20U, 15U, 12U, 10U})
        if (width <= room) return width;
    return 0;
}

std::string HistoryLine(const std::vector<RateHistory::Rate>& rates, std::size_t width, Charset charset)
{
    return HistoryGraph(rates, width, 1, charset).front();
}

std::vector<std::string> HistoryGraph(const std::vector<RateHistory::Rate>& rates, std::size_t width,
                                      std::size_t height, Charset charset)
{
    const Marks& marks = MarksOf(charset);
    const std::uint64_t highest = Highest(rates);
    std::vector<std::string> lines(height);
    for (const RateHistory::Rate& rate : Spans(rates, width)) {
        const std::size_t steps = Steps(rate.value_or(0), highest, height * marks.Steps());
        for (std::size_t line = 0; line < height; ++line) {
            const std::size_t below = (height - line - 1) * marks.Steps();
            lines[line] += marks.of.at(std::min(marks.Steps(), steps - std::min(steps, below)));
        }
    }
    return lines;
}

std::uint64_t Highest(const std::vector<RateHistory::Rate>& rates)
{
    std::uint64_t highest = 0;
    for (const RateHistory::Rate& rate : rates) highest = std::max(highest, rate.value_or(0));
    return highest;
}

}  // namespace cli
