// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <ostream>
#include <sstream>
#include <string>

#include "cli/screens/style.h"
#include "cli/screens/wrapped_text.h"
#include "cli/shell/message_lines.h"
#include "cli/shell/prompt.h"

namespace {

const cli::Style kPlain;
const cli::Style kColoured(true);

std::string Red(const std::string& text) { return "\033[31m" + text + "\033[39m"; }
std::string Green(const std::string& text) { return "\033[32m" + text + "\033[39m"; }
std::string Yellow(const std::string& text) { return "\033[33m" + text + "\033[39m"; }

TEST(Style, ColoursTheKindsOfMessages)
{
    EXPECT_EQ(Red("error:") + " no", kColoured.Message("error: no"));
    EXPECT_EQ(Yellow("warning:") + " error: late", kColoured.Message("warning: error: late"));
    EXPECT_EQ("the error: no", kColoured.Message("the error: no"));
    EXPECT_EQ("error: no", kPlain.Message("error: no"));
}

TEST(Style, ColoursWhatComesAndWhatGoes)
{
    EXPECT_EQ("Commit 1\n" + Red("- oam a") + "\n" + Green("+ oam b") + "\n-\n",
              kColoured.Differences("Commit 1\n- oam a\n+ oam b\n-\n"));
    EXPECT_EQ("- oam a\n", kPlain.Differences("- oam a\n"));
    EXPECT_EQ("", kColoured.Differences(""));
}

TEST(Style, ColoursWhatIsBroken)
{
    EXPECT_EQ("  Problems    " + Red("8 broken") + ", 1 off by configuration\n\n" + Red("Broken") +
                  "\n  collector c1  broken: Broken\n",
              kColoured.Causes("  Problems    8 broken, 1 off by configuration\n\nBroken\n"
                               "  collector c1  broken: Broken\n"));
    EXPECT_EQ("  Problem      " + Red("broken") + ": no broken route\n",
              kColoured.Causes("  Problem      broken: no broken route\n"));
    for (const std::string text :
         {"  Problems    none\n", "  Problems    1 idle, 2 broken\n", "  Problem  idle: a broken cable\n",
          "Broken-1\n", "\n", "  Problems  \n", "  Problem"})
        EXPECT_EQ(text, kColoured.Causes(text));
    EXPECT_EQ("Broken\n", kPlain.Causes("Broken\n"));
}

TEST(Style, ColoursThePrompt)
{
    const cli::Standing standing{.isAway = true, .isEdited = true, .confirmIn = "54"};
    EXPECT_EQ("a@b " + Red("[no answer]") + "> ", cli::PromptText("a@b", {}, {.isLate = true}, kColoured));
    EXPECT_EQ("a@b" + Yellow("*") + " " + Red("[no database]") + " " + Yellow("[confirm in 54 s]") + "> ",
              cli::PromptText("a@b", {}, standing, kColoured));
}

TEST(WrappedText, StandsBelowItsLead)
{
    EXPECT_EQ("error: one two three four;\n       five six seven eight\n       nine",
              cli::Wrapped("error: one two three four; five six seven eight nine", 7, 27));
    EXPECT_EQ("a line that fits", cli::Wrapped("a line that fits", 0, 20));
}

TEST(WrappedText, LeavesWordsAndNarrowTerminalsAlone)
{
    const std::string word(50, 'x');
    EXPECT_EQ("a\n" + word + "\nb", cli::Wrapped("a " + word + " b", 0, 30));
    for (std::size_t width = 0; width < 20; ++width)
        EXPECT_EQ("one two three four five six", cli::Wrapped("one two three four five six", 0, width));
    EXPECT_EQ("", cli::Wrapped("", 7, 80));
}

TEST(MessageLines, AreBrokenColouredAndWithoutControlCharacters)
{
    std::ostringstream to;
    std::size_t width = 40;
    {
        cli::MessageLines lines(
            to, [&] { return width; }, kColoured);
        std::ostream stream(&lines);
        stream << "error: there is no interface "
               << "nix in the state; show lists them\n"
               << "  a line with blanks before it, which is long\033[2J\n";
        width = 30;
        stream << "warning: one two three four five" << std::endl << "no end";
    }
    EXPECT_EQ(Red("error:") +
                  " there is no interface nix in the\n       state; show lists them\n"
                  "  a line with blanks before it, which is\n  long\\x1b[2J\n" +
                  Yellow("warning:") + " one two three four\n         five\nno end\n",
              to.str());
}

}  // namespace
