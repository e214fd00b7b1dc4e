// SPDX-License-Identifier: Apache-2.0
// soak [--minutes N | --steps N] [--seed N] [--self-test]: the random walk until the time is over or
// something is wrong. Prints seed, steps, kills and violations; ends with 1 at the first violation.
// `--self-test` changes the switch behind the model's back and ends with 0 when that is found.

#include <charconv>
#include <chrono>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>

#include "netconf/socket.h"
#include "soak/walk.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    unsigned long seed = 0;
    unsigned long minutes = 5;
    unsigned long steps = 0;  // 0: by time
    bool selfTest = false;
};

std::optional<Options> ParseOptions(int argc, char** argv)
{
    Options options;
    options.seed = static_cast<unsigned long>(Clock::now().time_since_epoch().count()) % 1000000;
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        if (name == "--self-test") {
            options.selfTest = true;
            continue;
        }
        unsigned long* const value = name == "--seed"      ? &options.seed
                                     : name == "--minutes" ? &options.minutes
                                     : name == "--steps"   ? &options.steps
                                                           : nullptr;
        if (value == nullptr || ++i == argc) return std::nullopt;
        const char* const end = argv[i] + std::strlen(argv[i]);
        const auto [stopped, error] = std::from_chars(argv[i], end, *value);
        if (error != std::errc{} || stopped != end) return std::nullopt;
    }
    return options;
}

void Print(const Options& options, const soak::Tally& tally, std::size_t violations)
{
    std::cout << "seed " << options.seed << ", steps " << tally.steps << ", kills " << tally.kills
              << " (in commits " << tally.killsInCommits << "), commits " << tally.commits << ", refusals "
              << tally.refusals << ", stalls " << tally.stalls << ", write failures " << tally.writeFailures
              << ", looks " << tally.looks << ", resyncs " << tally.resyncs << ", violations " << violations
              << std::endl;
}

// What was wrong; nullopt: nothing until the end.
std::optional<std::string> Run(const Options& options, soak::Walk& walk)
{
    const auto begin = Clock::now();
    auto told = begin;
    try {
        for (;;) {
            const auto now = Clock::now();
            const bool over = options.steps > 0 ? walk.Counts().steps >= options.steps
                                                : now - begin >= std::chrono::minutes(options.minutes);
            if (over) break;
            if (options.selfTest && walk.Counts().steps + 1 == options.steps) walk.Lie();
            walk.Step();
            if (now - told < std::chrono::minutes(1)) continue;
            told = now;
            Print(options, walk.Counts(), 0);
        }
        walk.Finish();
        return std::nullopt;
    } catch (const soak::Violation& violation) {
        return violation.what();
    } catch (const netconf::ConnectionError& error) {
        return std::string("a session was lost: ") + error.what();
    } catch (const std::exception& error) {
        return std::string("the walk can't go on: ") + error.what();
    }
}

}  // namespace

int main(int argc, char** argv)
{
    const auto options = ParseOptions(argc, argv);
    if (!options) {
        std::cerr << "usage: soak [--minutes N | --steps N] [--seed N] [--self-test]\n";
        return 2;
    }
    std::cout << "seed " << options->seed << std::endl;
    soak::Walk walk(options->seed);
    const auto wrong = Run(*options, walk);
    Print(*options, walk.Counts(), wrong ? 1 : 0);
    std::cout << "most of each process: " << walk.Sizes() << std::endl;
    if (options->selfTest) return wrong ? 0 : 1;
    if (!wrong) return 0;
    std::cout << *wrong << "\n---- what led here\n"
              << walk.History() << "\nAgain: soak --seed " << options->seed << " --steps "
              << walk.Counts().steps << std::endl;
    return 1;
}
