// SPDX-License-Identifier: Apache-2.0
#include "cli/golden.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace cli_test {

void ExpectGolden(const std::string& name, const std::string& text)
{
    const std::string path = SFLOW_SOURCE_DIR "/tests/unit/cli/golden/" + name + ".txt";
    if (std::getenv("SFLOW_RENEW") != nullptr) {
        std::ofstream(path) << text;
        return;
    }
    std::ifstream file(path);
    EXPECT_TRUE(file) << path << " is missing; make renew writes it";
    std::ostringstream content;
    content << file.rdbuf();
    EXPECT_EQ(content.str(), text) << "as " << path << " has it; if it is meant to change, make renew";
}

}  // namespace cli_test
