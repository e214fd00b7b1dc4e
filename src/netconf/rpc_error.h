// SPDX-License-Identifier: Apache-2.0
// One <rpc-error> of a reply (RFC 6241, section 4.3), as the server writes and the client reads it.

#ifndef NETCONF_RPC_ERROR_H
#define NETCONF_RPC_ERROR_H

#include <string>
#include <utility>
#include <vector>

namespace netconf {

struct RpcError {
    std::string type = "application";  // transport, rpc, protocol, application
    std::string tag;                   // "invalid-value", ...
    std::string severity = "error";    // error, warning
    std::string appTag;                // may be empty
    std::string path;                  // XPath with prefixes; may be empty
    std::string message;               // English, may be empty
    /// Children of <error-info>: name and text.
    std::vector<std::pair<std::string, std::string>> info;
    /// The prefixes in `path`, with their namespaces. A client does not fill this in.
    std::vector<std::pair<std::string, std::string>> prefixes;

    [[nodiscard]] bool IsWarning() const { return severity == "warning"; }
    friend bool operator==(const RpcError&, const RpcError&) = default;
};

/// Appends the <rpc-error> element, unprefixed, for a place where the base namespace is the default.
void AppendXml(const RpcError& error, std::string& out);

}  // namespace netconf

#endif
