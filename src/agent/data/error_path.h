// SPDX-License-Identifier: Apache-2.0
// Paths of nodes for <error-path>: absolute XPath with a prefix before every name, because in XPath a name
// without one is in no namespace. Used by errors.cpp.

#ifndef AGENT_DATA_ERROR_PATH_H
#define AGENT_DATA_ERROR_PATH_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct ly_ctx;

namespace agent {

struct ErrorPath {
    std::string text;
    std::vector<std::pair<std::string, std::string>> prefixes;  // with their namespaces
};

/// Converts libyang's data path, which names a module only where it changes. The prefixes are the modules'
/// names. A path that begins with an operation gets <rpc> before it.
ErrorPath ToErrorPath(std::string_view dataPath, const ly_ctx* context);

/// The part of a data path that is inside the <config> of a request; empty if none is.
std::string PathInConfig(std::string_view dataPath);

}  // namespace agent

#endif
