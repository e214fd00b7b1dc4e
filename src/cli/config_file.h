// SPDX-License-Identifier: Apache-2.0
// Reading of a configuration's file for `load`: RFC 7951 JSON or XML, whichever its content is.

#ifndef CLI_CONFIG_FILE_H
#define CLI_CONFIG_FILE_H

#include <string>
#include <string_view>

#include "cli/data.h"

namespace cli {

/// Throws Error that names the file and, for what is wrong inside it, line and column: the file is
/// missing or larger than a message may be, is neither JSON nor XML, is malformed, has what the YANG
/// modules do not know or values that they refuse, or has state.
Tree ReadConfigFile(const ly_ctx* yang, const std::string& path);

/// The same for a text; `name` stands for the file in messages.
Tree ParseConfigText(const ly_ctx* yang, const std::string& text, std::string_view name);

}  // namespace cli

#endif
