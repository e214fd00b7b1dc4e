// SPDX-License-Identifier: Apache-2.0
// Connecting to the server's Unix socket. Used by the client and the relay.

#ifndef NETCONF_SOCKET_H
#define NETCONF_SOCKET_H

#include <stdexcept>
#include <string>

#include "base/unique_fd.h"

namespace netconf {

/// The server can't be reached, does not answer in time, or breaks the protocol. The text names the
/// socket and what happened.
class ConnectionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A connected, blocking stream socket. Throws ConnectionError.
base::UniqueFd ConnectSocket(const std::string& path);

}  // namespace netconf

#endif
