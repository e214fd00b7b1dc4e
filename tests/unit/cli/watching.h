// SPDX-License-Identifier: Apache-2.0
// Looks at a switch with traffic, for tests of the full screen.

#ifndef TESTS_UNIT_CLI_WATCHING_H
#define TESTS_UNIT_CLI_WATCHING_H

#include <string>

#include "cli/data/data_tree.h"
#include "cli/screens/watch_screen.h"

namespace cli_test {

/// Data that the modules need not know.
cli::Tree AnyXml(const std::string& xml);

/// Interfaces gigabit-ethernet-1/1/1 up to 1/1/`interfaces` after `second` seconds of traffic, a missing one
/// and two collectors. `one`: no more than that interface.
cli::Tree StateAfter(int second, int interfaces, const std::string& one = {});

/// A watch after `seconds` looks, and what is made of it.
struct Watching {
    explicit Watching(int seconds, int interfaces, const std::string& one = {});
    /// The scene now.
    [[nodiscard]] cli::WatchScene Scene() const;
    /// The lines of the screen; at the end of each, which texts are not plain if `styles`.
    [[nodiscard]] std::string Screen(cli::ScreenSize size, cli::Charset charset = cli::Charset::kUtf8,
                                     bool styles = false) const;

    cli::SflowWatch watch{"interface", ""};
    cli::SflowWatch::Time now;
    cli::Watched watched;
    cli::WatchView view;
    cli::Talkers talkers;
    std::string failure, pausedSince;
};

}  // namespace cli_test

#endif
