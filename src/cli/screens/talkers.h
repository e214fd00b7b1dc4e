// SPDX-License-Identifier: Apache-2.0
// Who sends most through an interface, as the samples of the last seconds tell.

#ifndef CLI_SCREENS_TALKERS_H
#define CLI_SCREENS_TALKERS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/data/state_node.h"

namespace cli {

struct Talker {
    std::string source, destination;  // with the port, where there is one
    std::string protocol;
    std::uint64_t packets = 0, bits = 0;  // in a second
};

struct Talkers {
    std::optional<std::uint64_t> countedForMs;  // nullopt: not asked yet
    std::uint64_t samples = 0;
    std::vector<Talker> list;  // most bits first
    std::string problem;       // why there is none; empty: none
};

/// `output`: of the operation sflow-top-talkers.
Talkers TalkersOf(const Children& output);

/// Lines of at most `width` characters: a heading and a line each, as many as have room in `height`.
std::vector<std::string> TalkerLines(const Talkers& talkers, std::size_t width, std::size_t height);

}  // namespace cli

#endif
