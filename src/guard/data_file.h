// SPDX-License-Identifier: Apache-2.0
// The look at a configuration's file before libyang reads it: well-formed, within bounds, nothing that
// the schema does not know. One function for every door through which files come in.

#ifndef GUARD_DATA_FILE_H
#define GUARD_DATA_FILE_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "guard/limits.h"
#include "guard/schema_index.h"

namespace guard {

enum class Format { kXml, kJson };

/// By the first character; nullopt for a text that is neither.
std::optional<Format> FormatOf(std::string_view text);

struct FileProblem {
    std::size_t offset = 0;  // in bytes, where it shows
    std::string text;        // what is wrong and where in the data, without the place in the text
};

/// What is wrong with the text, which holds the data of one or more modules, as RFC 7951 JSON or as
/// XML. What is malformed is told first: what seems unknown may only be its consequence.
std::optional<FileProblem> CheckFile(const SchemaIndex& index, std::string_view text, Format format,
                                     const Limits& limits = {});

/// "line 3, column 7", for the byte at `offset`.
std::string PlaceInText(std::string_view text, std::size_t offset);

}  // namespace guard

#endif
