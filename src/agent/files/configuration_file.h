// SPDX-License-Identifier: Apache-2.0
// Reads a configuration file: RFC 7951 JSON or XML. Used by --init and --import.

#ifndef AGENT_FILES_CONFIGURATION_FILE_H
#define AGENT_FILES_CONFIGURATION_FILE_H

#include <filesystem>
#include <string>
#include <vector>

#include "agent/data/yang_tree.h"
#include "cdb/model/error.h"
#include "cdb/schema/schema.h"

namespace agent {

/// The file's content, not validated; its first character tells the format. Throws cdb::FatalError that names
/// the file and, for wrong content, its place in the text or its data path.
Tree ReadConfiguration(const cdb::Schema& schema, const std::filesystem::path& file);

/// Throws cdb::FatalError that names the file.
[[noreturn]] void FailFile(const std::filesystem::path& file, const std::string& what);

/// The errors' messages, joined by "; ".
std::string TextOf(const std::vector<cdb::Error>& errors);

}  // namespace agent

#endif
