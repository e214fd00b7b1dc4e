// SPDX-License-Identifier: Apache-2.0
// Carries bytes between a client's two descriptors and the server's socket, both ways at once and
// without looking at them. Used by cdb-netconf-relay.

#ifndef NETCONF_RELAY_H
#define NETCONF_RELAY_H

namespace netconf {

/// Blocks until the server closes, then returns true. When `input` ends, the server sees the end and its
/// last answers are still relayed. Returns false if a side can't be written to. The caller ignores SIGPIPE.
bool Relay(int input, int output, int server);

}  // namespace netconf

#endif
