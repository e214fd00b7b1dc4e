// SPDX-License-Identifier: Apache-2.0
// The tree's YANG modules, and data of them, for the shell's tests.

#ifndef TESTS_UNIT_CLI_YANG_H
#define TESTS_UNIT_CLI_YANG_H

#include <string>

#include "cli/data/data_tree.h"

namespace cli_test {

/// Loaded once a test process.
const ly_ctx* Yang();

/// Configuration or state from its RFC 7951 JSON; fails the test when it is wrong.
cli::Tree FromJson(const std::string& json);

/// The configuration whose /config/oam/sflow has this content.
cli::Tree Sflow(const std::string& content);

}  // namespace cli_test

#endif
