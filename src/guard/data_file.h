// SPDX-License-Identifier: Apache-2.0
// Checks a configuration file before libyang reads it: well-formed, within bounds, nothing that the
// schema does not know. The agent and the shell use it for every configuration file.

#ifndef GUARD_DATA_FILE_H
#define GUARD_DATA_FILE_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "guard/limits.h"
#include "guard/schema_index.h"

namespace guard {

/// Why a configuration file is refused.
struct FileProblem {
    std::size_t offset = 0;  // in bytes, where the check stopped
    std::string text;        // what is wrong and where in the data, without the place in the text
};

enum class Format { kXml, kJson };

/// By the first character that is not blank; nullopt if the text is neither.
std::optional<Format> FormatOf(std::string_view text);

/// What is wrong with the text, which holds the data of one or more modules as RFC 7951 JSON or as XML;
/// nullopt if nothing. A syntax error comes first: what seems unknown may only be its consequence.
std::optional<FileProblem> CheckFile(const SchemaIndex& index, std::string_view text, Format format,
                                     const Limits& limits = {});

}  // namespace guard

#endif
