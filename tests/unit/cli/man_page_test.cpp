// SPDX-License-Identifier: Apache-2.0
// The manual's list of commands is the command table's. `make renew` writes it between the two COMMANDS marks
// of docs/man/swcli.1.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

#include "cli/commands/command.h"

namespace {

constexpr std::string_view kBegin = ".\\\" begin of the command table\n";
constexpr std::string_view kEnd = ".\\\" end of the command table\n";

std::string Escaped(std::string_view text)
{
    std::string out;
    for (const char c : text) out += c == '-' ? "\\-" : c == '\\' ? "\\e" : std::string(1, c);
    return out;
}

std::string CommandSection()
{
    std::string text;
    for (const cli::Command& command : cli::Commands())
        text += ".TP\n.B " + Escaped(cli::Usage(command)) + "\n" + Escaped(command.help) + "\n";
    return text;
}

TEST(ManPage, HasTheCommandsOfTheTableAndNoOther)
{
    std::ifstream file(SFLOW_SOURCE_DIR "/docs/man/swcli.1");
    std::ostringstream content;
    content << file.rdbuf();
    const std::string page = content.str();
    const std::size_t begin = page.find(kBegin);
    const std::size_t end = page.find(kEnd);
    ASSERT_NE(begin, std::string::npos);
    ASSERT_NE(end, std::string::npos);
    const std::size_t size = end - begin - kBegin.size();
    if (std::getenv("SFLOW_RENEW") != nullptr) {
        std::ofstream(SFLOW_SOURCE_DIR "/docs/man/swcli.1")
            << std::string(page).replace(begin + kBegin.size(), size, CommandSection());
        GTEST_SKIP() << "written anew";
    }
    EXPECT_EQ(page.substr(begin + kBegin.size(), size), CommandSection());
}

}  // namespace
