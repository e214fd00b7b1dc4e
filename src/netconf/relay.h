// SPDX-License-Identifier: Apache-2.0
// Carries bytes between a client's two descriptors and the server's socket, both ways at once and
// without looking at them. Used by cdb-netconf-relay.

#ifndef NETCONF_RELAY_H
#define NETCONF_RELAY_H

namespace netconf {

/// Until the server closes; true then. When `input` ends, the server is told so and what it still
/// says is carried on. False where a side goes in the middle. Blocks; SIGPIPE must be ignored.
bool Relay(int input, int output, int server);

}  // namespace netconf

#endif
