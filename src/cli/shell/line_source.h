// SPDX-License-Identifier: Apache-2.0
// Where the lines of a conversation come from.

#ifndef CLI_SHELL_LINE_SOURCE_H
#define CLI_SHELL_LINE_SOURCE_H

#include <istream>
#include <optional>
#include <ostream>
#include <string>

namespace cli {

class LineSource {
public:
    LineSource() = default;
    LineSource(const LineSource&) = delete;
    LineSource& operator=(const LineSource&) = delete;
    virtual ~LineSource() = default;

    /// The next line without its end, after the prompt; nullopt at the end of the input.
    virtual std::optional<std::string> Read(const std::string& prompt) = 0;
};

/// Lines of a stream; the prompts go to another one.
class StreamLines : public LineSource {
public:
    StreamLines(std::istream& in, std::ostream& out) : m_in(in), m_out(out) {}

    std::optional<std::string> Read(const std::string& prompt) override
    {
        std::string line;
        m_out << prompt << std::flush;
        if (!std::getline(m_in, line)) return std::nullopt;
        return line;
    }

private:
    std::istream& m_in;
    std::ostream& m_out;
};

}  // namespace cli

#endif
