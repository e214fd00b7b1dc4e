// SPDX-License-Identifier: Apache-2.0
// Sends cdbd messages that are bent out of shape, each in a session of its own.
//
//   message_shapes [--size BYTES] [--patience SECONDS]             each shape at each place: a table
//   message_shapes --count N [--seed N] [--size BYTES] [...]       so many bent at random
//
// No process may end, and each message must be answered or its session closed. In a release build no message
// may cost 100 ms of CPU, but for those that are so much good data. Ends with 1 where that does not hold.

#include <charconv>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <map>
#include <optional>
#include <string>

#include "shapes/shape.h"
#include "shapes/target.h"

namespace {

using shapes::Outcome;
using shapes::Place;

constexpr double kMaxCpuMs = 100;
// Debug builds and sanitizers are slower for reasons of their own.
constexpr bool kCpuCounts =
#if defined(__OPTIMIZE__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    true;
#else
    false;
#endif

struct Options {
    unsigned long size = 1000000;
    unsigned long patience = 60;
    unsigned long count = 0;
    unsigned long seed = 1;
};

std::optional<Options> ParseOptions(int argc, char** argv)
{
    Options options;
    const std::map<std::string, unsigned long*> names = {{"--size", &options.size},
                                                         {"--patience", &options.patience},
                                                         {"--count", &options.count},
                                                         {"--seed", &options.seed}};
    for (int i = 1; i < argc; i += 2) {
        const auto name = names.find(argv[i]);
        if (name == names.end() || i + 1 == argc) return std::nullopt;
        const char* const end = argv[i + 1] + std::strlen(argv[i + 1]);
        const auto [stopped, error] = std::from_chars(argv[i + 1], end, *name->second);
        if (error != std::errc{} || stopped != end) return std::nullopt;
    }
    return options;
}

class Report {
public:
    explicit Report(shapes::Target& target) : m_target(target) {}

    /// One message; a line for it where `always`, or where something is wrong with it.
    void Send(const std::string& what, const std::string& message, bool isData, bool always)
    {
        const Outcome outcome = m_target.Send(message);
        ++m_messages;
        std::string wrong = Wrong(outcome);
        const bool costly = outcome.cpuMs >= kMaxCpuMs && !isData;
        if (wrong.empty() && costly) wrong = kCpuCounts ? "WRONG: too much CPU" : "";
        if (always || !wrong.empty()) {
            static const std::map<Outcome::Kind, std::string> kinds{
                {Outcome::Kind::kAnswer, ""},
                {Outcome::Kind::kClosed, "closed"},
                {Outcome::Kind::kSilence, "silence"},
                {Outcome::Kind::kEnded, "a process ended"}};
            const auto answer = outcome.answer.empty() ? kinds.at(outcome.kind) : outcome.answer;
            std::cout << std::left << std::setw(54) << what << std::right << std::fixed
                      << std::setprecision(1) << std::setw(9) << outcome.cpuMs << std::setw(9)
                      << outcome.longestMs << "  " << std::left << std::setw(18) << answer << wrong
                      << std::endl;
        }
        if (outcome.longestMs > m_longest) m_longest = outcome.longestMs;
        if (outcome.cpuMs > m_most && !isData) m_most = outcome.cpuMs;
        if (wrong.empty()) return;
        ++m_wrong;
        if (outcome.kind != Outcome::Kind::kEnded && outcome.kind != Outcome::Kind::kSilence) return;
        std::cout << m_target.Log() << std::endl;
        m_target.Recover();
    }

    [[nodiscard]] std::size_t End() const
    {
        std::cout << m_messages << " messages, " << m_wrong << " wrong; most CPU " << std::fixed
                  << std::setprecision(1) << m_most << " ms, longest delay of another session " << m_longest
                  << " ms" << std::endl;
        return m_wrong;
    }

private:
    static std::string Wrong(const Outcome& outcome)
    {
        if (outcome.kind == Outcome::Kind::kEnded) return "WRONG: a process ended";
        if (outcome.kind == Outcome::Kind::kSilence) return "WRONG: no answer";
        return {};
    }

    shapes::Target& m_target;
    std::size_t m_messages = 0;
    std::size_t m_wrong = 0;
    double m_most = 0;
    double m_longest = 0;
};

void SendEach(const Options& options, Report& report)
{
    static const std::map<Place, std::string> kPlaces{
        {Place::kRpc, "rpc"},           {Place::kOperation, "operation"}, {Place::kData, "config or filter"},
        {Place::kContainer, "sflow"},   {Place::kEntry, "interface"},     {Place::kKey, "interface/name"},
        {Place::kLeaf, "sampling-rate"}};
    std::cout << std::left << std::setw(54) << "shape" << std::right << std::setw(9) << "CPU ms"
              << std::setw(9) << "others ms"
              << "  answer\n";
    static const std::vector<std::pair<std::string, shapes::Element>> kMessages{
        {"edit", shapes::EditMessage()},
        {"filter", shapes::FilterMessage()},
        {"state filter", shapes::StateFilterMessage()}};
    for (const auto& [kind, whole] : kMessages)
        for (const auto& shape : shapes::Shapes())
            for (const auto& [place, name] : kPlaces) {
                const auto message = shapes::Bent(whole, shape, place, options.size);
                if (message.empty()) continue;
                report.Send(kind + ": " + shape.name + ", " + name, message, shape.isData, true);
            }
}

void SendDrawn(const Options& options, Report& report)
{
    for (unsigned long i = 0; i < options.count; ++i) {
        support::Dice dice(options.seed * 1000003 + i);  // each message alone can be had again
        std::string what;
        const auto message = shapes::DrawBent(dice, options.size, what);
        const bool isData =
            what.find("entries") != std::string::npos || what.find("references to") != std::string::npos;
        report.Send("message " + std::to_string(i) + ": " + what, message, isData, false);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    const auto options = ParseOptions(argc, argv);
    if (!options) {
        std::cerr << "usage: message_shapes [--count N] [--seed N] [--size BYTES] [--patience SECONDS]\n";
        return 2;
    }
    try {
        shapes::Target target{std::chrono::seconds(options->patience)};
        Report report(target);
        if (options->count > 0)
            SendDrawn(*options, report);
        else
            SendEach(*options, report);
        return report.End() == 0 ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << "message_shapes: " << error.what() << "\n";
        return 1;
    }
}
