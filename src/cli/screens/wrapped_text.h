// SPDX-License-Identifier: Apache-2.0
// Long texts in several lines.

#ifndef CLI_SCREENS_WRAPPED_TEXT_H
#define CLI_SCREENS_WRAPPED_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace cli {

/// Adds the text to `out` in lines of at most `width` characters, broken at blanks: the first begins where
/// `out` ends, the others behind `from` blanks, which are not of the width. What stands behind "; " begins a
/// line where a text is broken, since it is a remedy. A word that is longer than a line stays whole.
void AppendWrapped(std::string_view text, std::size_t from, std::size_t width, std::string& out);

/// A line without its end in lines of at most `width` characters: below its first `from` characters, which
/// are ASCII, stand blanks. Where that leaves too little room it stays one line.
std::string Wrapped(std::string_view line, std::size_t from, std::size_t width);

}  // namespace cli

#endif
