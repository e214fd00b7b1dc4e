// SPDX-License-Identifier: Apache-2.0
#include "base/options/options.h"

#include <algorithm>
#include <sstream>
#include <string_view>
#include <utility>

#include <boost/program_options/errors.hpp>
#include <boost/program_options/parsers.hpp>
#include <boost/program_options/value_semantic.hpp>

#include "base/number.h"
#include "base/version.h"

namespace base {
namespace {

namespace po = boost::program_options;

constexpr unsigned kWidth = 100;

/// What the library found wrong. A value of an option without one is named with it.
UsageError Problem(const po::invalid_command_line_syntax& error, const Options::Words& arguments)
{
    const std::string option = error.get_option_name();
    if (error.kind() != po::invalid_command_line_syntax::extra_parameter)
        return UsageError("option " + option + " needs a value");
    const auto word = std::find_if(arguments.begin(), arguments.end(),
                                   [&](const std::string& each) { return each.starts_with(option + "="); });
    return UsageError("no such option: " + (word == arguments.end() ? option : *word));
}

}  // namespace

Options::Options(bool& help, bool& version) : m_described("Options", kWidth)
{
    Add("help,h", "print this text", help);
    Add("version", "print the version", version);
}

void Options::Add(const char* names, const char* value, const char* help, Take take)
{
    m_described.add_options()(names, po::value<std::string>()->value_name(value), help);
    m_take[m_described.options().back()->long_name()] = std::move(take);
}

void Options::Add(const char* names, const char* help, bool& given)
{
    m_described.add_options()(names, help);
    m_take[m_described.options().back()->long_name()] = [&given](const std::string&) { given = true; };
}

void Options::Read(const Words& arguments, Words* words) const
try {
    const auto style = po::command_line_style::unix_style & ~po::command_line_style::allow_guessing;
    const auto parsed =
        po::command_line_parser(arguments).options(m_described).style(style).allow_unregistered().run();
    for (const po::option& each : parsed.options) {
        const std::string& word = each.original_tokens.front();
        if (each.unregistered) throw UsageError("no such option: " + word);
        if (each.position_key >= 0 && words == nullptr) throw UsageError("unexpected argument: " + word);
        if (each.position_key >= 0)
            words->push_back(word);
        else
            m_take.at(m_described.find(each.string_key, false).long_name())(
                each.value.empty() ? "" : each.value.front());
    }
} catch (const po::invalid_command_line_syntax& error) {
    throw Problem(error, arguments);
}

std::string Options::Text() const
{
    std::ostringstream text;
    text << m_described;
    return text.str();
}

std::string VersionText(const std::string& program) { return program + " " + Version() + "\n"; }

std::string EnvironmentText()
{
    return "\nEnvironment:\n"
           "  SFLOW_RUN_DIR    directory of the sockets (/run/sflow-switch)\n"
           "  SFLOW_LOG        log file, or - for standard error (-)\n"
           "  SFLOW_LOG_LEVEL  lowest level written: 10 debug, 11 info, 12 notice, 13 error (12)\n";
}

std::uint64_t ToSize(const std::string& text, std::uint64_t least, std::uint64_t most,
                     const std::string& problem)
{
    constexpr std::string_view kUnits = "kMG";
    const std::size_t unit =
        text.empty() ? std::string_view::npos : kUnits.find(text.back() == 'K' ? 'k' : text.back());
    const unsigned shift = unit == std::string_view::npos ? 0 : 10 * (static_cast<unsigned>(unit) + 1);
    const auto number =
        ToNumber<std::uint64_t>(std::string_view(text).substr(0, text.size() - (shift == 0 ? 0 : 1)));
    if (!number || *number > most >> shift || *number << shift < least) throw UsageError(problem);
    return *number << shift;
}

}  // namespace base
