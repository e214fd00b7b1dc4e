// SPDX-License-Identifier: Apache-2.0
#include "screens/golden_text.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <regex>
#include <sstream>
#include <utility>

#include "support/process.h"

namespace screens_tests {
namespace {

/// Headings of columns whose numbers grow with the time, or are a process's.
constexpr std::array kCountingColumns = {"Process", "Datagrams", "Counters", "Bytes", "Seen", "Samples"};

struct Mask {
    std::regex what;
    std::string by;  // $1: what its first group has matched
};

const std::vector<Mask>& Masks()
{
    static const std::vector<Mask> masks = {
        {std::regex(R"((sflow-app|sflow-mgr|process) \d+\b)"), "$1 PID"},
        {std::regex(R"(("pid": |<pid>)\d+)"), "$1PID"},
        {std::regex(R"((  Process  +)\d+$)"), "$1PID"},
        {std::regex(R"(\d{4}-\d\d-\d\dT[0-9:.]+(Z|[+-]\d\d:\d\d))"), "YYYY-MM-DDThh:mm:ssZ"},
        {std::regex(R"(just now|\b\d+ (s|min|h|d) ago)"), "AGO"},
        {std::regex(R"(\b[\d.]+ m?s\b(?! long))"), "# s"},
        {std::regex(R"([\d.]+ samples/s, [\d.]+ datagrams/s)"), "# samples/s, # datagrams/s"},
        {std::regex(R"("milliseconds": [\d.]+)"), R"("milliseconds": #)"},
        {std::regex(R"(\b\d+ sent, \d+ bytes)"), "# sent, # bytes"},
        {std::regex(R"(\b\d+ sent\b)"), "# sent"},
        {std::regex(R"(\b\d+ of counters)"), "# of counters"},
        {std::regex(R"(\b\d+ of packets)"), "# of packets"},
        {std::regex(R"(\b\d+ seen, \d+ sampled \(\d+ bytes\))"), "# seen, # sampled (# bytes)"},
    };
    return masks;
}

/// Puts `by` in the place of the bytes; blanks behind them make the columns stay.
void Replace(std::string& line, std::size_t at, std::size_t size, const std::string& by)
{
    const std::size_t end = at + size;
    const std::size_t blanks = std::min(line.find_first_not_of(' ', end), line.size()) - end;
    line.replace(at, size, by);
    if (blanks < 2 || end + blanks >= line.size() + size - by.size()) return;
    const std::size_t column = at + size + blanks;  // where the next cell begins
    const std::size_t behind = at + by.size();
    line.replace(behind, blanks, column > behind + 1 ? column - behind : 2, ' ');
}

void MaskAll(std::string& line, const Mask& mask)
{
    std::smatch found;
    for (std::size_t from = 0; from < line.size();) {
        const std::string rest = line.substr(from);
        if (!std::regex_search(rest, found, mask.what)) return;
        const std::size_t at = from + static_cast<std::size_t>(found.position());
        const std::string by = found.format(mask.by);
        Replace(line, at, static_cast<std::size_t>(found.length()), by);
        from = at + by.size();
    }
}

std::vector<std::string> LinesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

/// The numbers below the heading, up to a line that is not of the table.
void MaskColumn(std::vector<std::string>& lines, std::size_t heading, std::size_t column)
{
    for (std::size_t at = heading + 1; at < lines.size(); ++at) {
        std::string& line = lines[at];
        if (line.size() <= column || (column > 0 && line[column - 1] != ' ')) return;
        const std::size_t end = std::min(line.find_first_not_of("0123456789", column), line.size());
        if (end != column) Replace(line, column, end - column, "#");
    }
}

}  // namespace

std::string WithNamedColours(const std::string& transcript)
{
    static const std::map<std::string, std::string> names = {
        {"31", "red"}, {"32", "green"}, {"33", "yellow"}};
    static const std::regex sequence("\033\\[([0-9;]*)m|\033[^a-zA-Z]*[a-zA-Z]|[\016\017]");
    std::string text;
    std::string colour;
    const auto change = [&](const std::string& to) {
        if (to == colour) return;
        if (!colour.empty()) text += "{/" + colour + "}";
        if (!to.empty()) text += "{" + to + "}";
        colour = to;
    };
    for (const std::string& line : LinesOf(transcript)) {
        auto from = line.cbegin();
        for (std::sregex_iterator at(line.begin(), line.end(), sequence), end; at != end; ++at) {
            const std::string before(from, (*at)[0].first);
            text += before;
            from = (*at)[0].second;
            if (!(*at)[1].matched) continue;
            const auto name = names.find((*at)[1].str());
            change(name == names.end() ? std::string() : name->second);
        }
        const std::string rest(from, line.cend());
        text += rest;
        const std::string goesOn = colour;  // tmux does not repeat it in the next line
        change({});
        text.erase(text.find_last_not_of(' ') + 1);
        text += '\n';
        change(goesOn);
    }
    change({});
    static const std::regex nothing(R"(\{(red|green|yellow)\}\{/\1\})");
    return std::regex_replace(text, nothing, "");
}

std::string WithoutColours(const std::string& text)
{
    static const std::regex names(R"(\{/?(red|green|yellow)\})");
    return std::regex_replace(text, names, "");
}

std::string Masked(const std::string& text, const std::map<std::string, std::string>& words)
{
    std::vector<std::string> lines = LinesOf(text);
    for (const auto& [what, by] : words)
        for (std::string& line : lines)
            for (std::size_t at = 0; (at = line.find(what, at)) != std::string::npos; at += by.size())
                Replace(line, at, what.size(), by);
    for (std::size_t at = 0; at < lines.size(); ++at)
        for (const char* heading : kCountingColumns) {
            const std::size_t column = lines[at].find("  " + std::string(heading));
            if (column != std::string::npos) MaskColumn(lines, at, column + 2);
        }
    std::string masked;
    for (std::string& line : lines) {
        for (const Mask& mask : Masks()) MaskAll(line, mask);
        masked += line + "\n";
    }
    return masked;
}

std::string LinesWiderThan(std::size_t width, const std::string& text)
{
    const auto isBegin = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; };
    std::string wide;
    for (const std::string& line : LinesOf(text))
        if (std::ranges::count_if(line, isBegin) > static_cast<std::ptrdiff_t>(width)) wide += line + "\n";
    return wide;
}

std::string CompareWithGolden(const std::filesystem::path& file, const std::string& text)
{
    if (std::getenv("SFLOW_RENEW") != nullptr) {
        std::filesystem::create_directories(file.parent_path());
        support::WriteFile(file, text);
        return {};
    }
    const std::vector<std::string> golden = LinesOf(support::ReadFile(file));
    const std::vector<std::string> shown = LinesOf(text);
    const auto [wanted, is] = std::ranges::mismatch(golden, shown);
    if (wanted == golden.end() && is == shown.end()) return {};
    const auto at = [](const auto& lines, auto line) { return line == lines.end() ? "(the end)" : *line; };
    return file.string() + ":" + std::to_string(wanted - golden.begin() + 1) +
           "\n  golden: " + at(golden, wanted) + "\n  shown:  " + at(shown, is) +
           "\nIf it is right: make renew";
}

}  // namespace screens_tests
