// SPDX-License-Identifier: Apache-2.0
// Reads a file of access rules: the container nacm of ietf-netconf-acm in XML or RFC 7951 JSON.

#ifndef AGENT_ACCESS_ACCESS_FILE_H
#define AGENT_ACCESS_ACCESS_FILE_H

#include <filesystem>
#include <string>

#include "agent/access/access_rules.h"
#include "base/expected.h"

struct ly_ctx;

namespace agent {

/// The rules, their paths resolved against `schema`; or what is wrong with the file, with its line. The file
/// is parsed in a context of its own, made of the modules in `yangDirectory`: a rule about a node that the
/// modules do not have is an error, not a rule without effect.
base::expected<AccessRules, std::string> ReadAccessFile(const std::filesystem::path& file,
                                                        const std::filesystem::path& yangDirectory,
                                                        const ly_ctx* schema);

}  // namespace agent

#endif
