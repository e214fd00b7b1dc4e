// SPDX-License-Identifier: Apache-2.0
// An <rpc-reply>, and its reader, which client.cpp uses.

#ifndef NETCONF_CLIENT_REPLY_H
#define NETCONF_CLIENT_REPLY_H

#include <string>
#include <vector>

#include "base/expected.h"
#include "netconf/rpc_error.h"

namespace netconf {

struct Reply {
    /// The request was carried out: no rpc-error of severity "error" (warnings may be in `errors`).
    bool ok = false;
    /// In the order of the reply; errors and warnings.
    std::vector<RpcError> errors;
    /// What stands inside <data>, as it was sent: XML elements that declare their own namespaces.
    std::string data;
    /// The whole <rpc-reply>.
    std::string xml;
};

/// The reply, or what is wrong with the message.
base::expected<Reply, std::string> ParseReply(std::string xml);

}  // namespace netconf

#endif
