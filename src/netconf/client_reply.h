// SPDX-License-Identifier: Apache-2.0
// Reads an <rpc-reply>. Used by client.cpp and its tests only.

#ifndef NETCONF_CLIENT_REPLY_H
#define NETCONF_CLIENT_REPLY_H

#include <string>

#include "base/expected.h"
#include "netconf/client.h"

namespace netconf {

/// The reply, or what is wrong with the message.
base::expected<Reply, std::string> ParseReply(std::string xml);

}  // namespace netconf

#endif
