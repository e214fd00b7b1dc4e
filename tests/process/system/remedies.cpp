// SPDX-License-Identifier: Apache-2.0
#include "system/remedies.h"

#include <fstream>
#include <iterator>
#include <regex>

#include "support/world.h"

namespace system_tests {
namespace {

/// The texts of the source's string literals; adjacent ones are one.
std::vector<std::string> LiteralsOf(const std::string& source)
{
    std::vector<std::string> literals;
    std::size_t at = 0;
    bool joins = false;
    while ((at = source.find_first_not_of(" \n", at)) != std::string::npos) {
        if (source.compare(at, 2, "//") == 0) {
            at = source.find('\n', at);
            continue;
        }
        if (source[at] != '"') {
            joins = false;
            ++at;
            continue;
        }
        std::string text;
        for (++at; source[at] != '"'; ++at) {
            if (source[at] == '\\') ++at;
            text += source[at];
        }
        ++at;
        if (joins)
            literals.back() += text;
        else
            literals.push_back(text);
        joins = true;
    }
    return literals;
}

}  // namespace

std::vector<RemedyText> RemediesInTheCode()
{
    std::ifstream file(support::World::Tree() / "src/manager/status/problem.cpp");
    const std::string source{std::istreambuf_iterator<char>(file), {}};
    static const std::regex kRemedy(
        "(set|delete) (oam|interface) [^;,]*|request [a-z ]+|ip (link|address) [^;,]*|start [^;,]*|"
        "sflow-mgr --[a-z-]+|larger --[a-z-]+");
    std::vector<RemedyText> remedies;
    for (const std::string& literal : LiteralsOf(source))
        for (std::sregex_iterator at(literal.begin(), literal.end(), kRemedy), end; at != end; ++at)
            remedies.push_back({literal, at->str()});
    return remedies;
}

}  // namespace system_tests
