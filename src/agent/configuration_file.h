// A file with a whole configuration, read: the one way in for what the command line names.

#ifndef AGENT_CONFIGURATION_FILE_H
#define AGENT_CONFIGURATION_FILE_H

#include <filesystem>

#include "agent/yang_tree.h"
#include "cdb/schema.h"

namespace agent {

/// RFC 7951 JSON or XML, told apart by the content. Throws cdb::FatalError that names the file and,
/// where something in it is wrong, line, column and the path in the data.
Tree ReadConfigurationFile(const cdb::Schema& schema, const std::filesystem::path& file);

}  // namespace agent

#endif
