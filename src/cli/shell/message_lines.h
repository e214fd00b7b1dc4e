// SPDX-License-Identifier: Apache-2.0
// Messages for a person: errors, warnings and what was done, in lines that fit the terminal.

#ifndef CLI_SHELL_MESSAGE_LINES_H
#define CLI_SHELL_MESSAGE_LINES_H

#include <cstddef>
#include <functional>
#include <ostream>
#include <streambuf>
#include <string>

#include "cli/screens/style.h"

namespace cli {

/// The buffer of a stream whose text goes to another one, a line at a time: broken at blanks, and with its
/// kind coloured. Control characters are escaped.
class MessageLines : public std::streambuf {
public:
    /// `width`: the characters of a line, asked for each. The stream must outlive this.
    MessageLines(std::ostream& to, std::function<std::size_t()> width, Style style);
    ~MessageLines() override;
    MessageLines(const MessageLines&) = delete;
    MessageLines& operator=(const MessageLines&) = delete;

protected:
    int_type overflow(int_type c) override;
    int sync() override;

private:
    void WriteLine();

    std::ostream& m_to;
    std::function<std::size_t()> m_width;
    Style m_style;
    std::string m_line;
};

}  // namespace cli

#endif
