// SPDX-License-Identifier: Apache-2.0
// Checks a file of RFC 7951 JSON. Used by data_file.cpp only.

#ifndef GUARD_JSON_FILE_H
#define GUARD_JSON_FILE_H

#include <optional>
#include <string>
#include <string_view>

#include "cdb/model/error.h"
#include "guard/file_problem.h"
#include "guard/limits.h"
#include "guard/schema_index.h"

namespace guard {

/// CheckFile for JSON.
std::optional<FileProblem> CheckJsonFile(const SchemaIndex& index, std::string_view text,
                                         const Limits& limits);

/// The message, with the path if there is one.
std::string TextOf(const cdb::Error& error);

}  // namespace guard

#endif
