// SPDX-License-Identifier: Apache-2.0
// Texts that a screen must be equal to, in files of the folder golden/. `make renew` writes them anew.

#ifndef TESTS_UNIT_CLI_GOLDEN_H
#define TESTS_UNIT_CLI_GOLDEN_H

#include <string>

namespace cli_test {

/// Expects the text to be that of golden/NAME.txt.
void ExpectGolden(const std::string& name, const std::string& text);

}  // namespace cli_test

#endif
