// SPDX-License-Identifier: Apache-2.0
// The command lines of the programs, on Boost.Program_options: one spelling of options, of the help text and
// of what is wrong.

#ifndef BASE_OPTIONS_OPTIONS_H
#define BASE_OPTIONS_OPTIONS_H

#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include <boost/program_options/options_description.hpp>

namespace base {

/// A command line that makes no sense; the text names the option and what it takes.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Options {
public:
    using Take = std::function<void(const std::string& value)>;
    using Words = std::vector<std::string>;

    /// Has --help and --version, which set these.
    Options(bool& help, bool& version);

    /// An option with a value, which the help text calls `value`. `names` is "long" or "long,l". `take` may
    /// throw UsageError. A repeated option is taken each time.
    void Add(const char* names, const char* value, const char* help, Take take);
    /// An option without a value.
    void Add(const char* names, const char* help, bool& given);

    /// Takes the options in their order. Words that are no options go to `words`; null if the program has
    /// none. Throws UsageError. No abbreviations.
    void Read(const Words& arguments, Words* words = nullptr) const;

    /// The options with their help, one below the other.
    [[nodiscard]] std::string Text() const;

private:
    boost::program_options::options_description m_described;
    std::map<std::string, Take> m_take;  // by long name
};

/// The program's name, its version and a line feed.
std::string VersionText(const std::string& program);

/// The variables that all programs look at, for help texts.
std::string EnvironmentText();

/// A number of bytes; k, M or G behind it (or K) multiplies it by 1024, 1024^2 or 1024^3. Throws UsageError
/// with the text `problem` if the text is none from `least` to `most`.
std::uint64_t ToSize(const std::string& text, std::uint64_t least, std::uint64_t most,
                     const std::string& problem);

}  // namespace base

#endif
