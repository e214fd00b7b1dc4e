// SPDX-License-Identifier: Apache-2.0
// Measures the whole switch as real processes and prints one table. Ends with 0 whether or not the
// bounds hold: the table says which do not.
//
//   switch_figures [--runs N] [--commits N] [--many N] [--most N] [FIGURE...]     figures 1 to 8, all by
//   default

#include <cstdlib>
#include <exception>
#include <iostream>
#include <map>
#include <set>
#include <string>

#include "figures/figures.h"

namespace {

struct Figure {
    int number;
    const char* name;
    void (*measure)(const figures::Settings&, figures::Table&);
};

constexpr Figure kFigures[] = {{1, "1 a change of one leaf", figures::MeasureChange},
                               {2, "2 a large file", figures::MeasureLoad},
                               {3, "3 the initial load", figures::MeasureInitialLoad},
                               {4, "4 get-config", figures::MeasureRead},
                               {5, "5 memory", figures::MeasureMemory},
                               {6, "6 state", figures::MeasureState},
                               {7, "7 scale", figures::MeasureScale},
                               {8, "8 a hundred thousand", figures::MeasureLarge},
                               {9, "9 commits taken back", figures::MeasureHistory},
                               {10, "10 sessions", figures::MeasureSessions}};

}  // namespace

int main(int argc, char** argv)
{
    figures::Settings settings;
    const std::map<std::string, std::size_t*> options = {{"--runs", &settings.runs},
                                                         {"--commits", &settings.commits},
                                                         {"--many", &settings.many},
                                                         {"--most", &settings.most}};
    std::set<int> wanted;
    for (int i = 1; i < argc; ++i) {
        const auto option = options.find(argv[i]);
        if (option != options.end() && i + 1 < argc)
            *option->second = std::strtoul(argv[++i], nullptr, 10);
        else
            wanted.insert(std::atoi(argv[i]));
    }
    figures::Table table;
    for (const auto& figure : kFigures) {
        if (!wanted.empty() && !wanted.contains(figure.number)) continue;
        try {
            figure.measure(settings, table);
        } catch (const std::exception& error) {
            table.Failed(figure.name, error.what());
        }
    }
    table.Print();
    return 0;
}
