// SPDX-License-Identifier: Apache-2.0
// Measures sampling with a real sflow-mgr and a bare forwarding path, both in a network namespace of the
// program's own, and prints one table. Ends with 0 whether or not the bounds hold: the table says which do
// not. Needs root (eBPF), two CPUs and quiet.
//
//   sampling_figures [--runs N] [--turns N] [--few N] [--many N] [FIGURE...]     figures 1 to 5, all by
//   default

#include <cstdlib>
#include <exception>
#include <iostream>
#include <map>
#include <set>
#include <string>

#include "sampling/figures.h"

namespace {

struct Figure {
    int number;
    const char* name;
    void (*measure)(const sampling::Settings&, sampling::ForwardingPath&, figures::Table&);
};

constexpr Figure kFigures[] = {{1, "1 a packet that is not sampled", sampling::MeasurePath},
                               {2, "2 a sample", sampling::MeasureSamples},
                               {3, "3 idle interfaces", sampling::MeasureIdle},
                               {4, "4 the first sample", sampling::MeasureFirstSample},
                               {5, "5 its share of a busy machine", sampling::MeasureShare}};

}  // namespace

int main(int argc, char** argv)
{
    sampling::Settings settings;
    const std::map<std::string, std::size_t*> options = {{"--runs", &settings.runs},
                                                         {"--turns", &settings.turns},
                                                         {"--few", &settings.few},
                                                         {"--many", &settings.many}};
    std::set<int> wanted;
    for (int i = 1; i < argc; ++i) {
        const auto option = options.find(argv[i]);
        if (option != options.end() && i + 1 < argc)
            *option->second = std::strtoul(argv[++i], nullptr, 10);
        else
            wanted.insert(std::atoi(argv[i]));
    }
    figures::Table table;
    try {
        sampling::ForwardingPath path;
        support::Pin(0, sampling::kForwardingCore);
        for (const auto& figure : kFigures) {
            if (!wanted.empty() && !wanted.contains(figure.number)) continue;
            try {
                figure.measure(settings, path, table);
            } catch (const std::exception& error) {
                table.Failed(figure.name, error.what());
            }
        }
    } catch (const std::exception& error) {
        table.Failed("the forwarding path", error.what());
    }
    table.Print();
    return 0;
}
