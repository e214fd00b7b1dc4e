// SPDX-License-Identifier: Apache-2.0
// How the relay tells the server that a session comes over SSH, and from where: one line before the client's
// hello. Only the relay can know it. It is no proof, since users can run the relay, or speak as it,
// themselves: it serves to be shown.

#ifndef NETCONF_ORIGIN_H
#define NETCONF_ORIGIN_H

#include <optional>
#include <string>
#include <string_view>

namespace netconf {

struct Origin {
    std::string host;  // an IP address
    friend bool operator==(const Origin&, const Origin&) = default;
};

/// The line, its end included. `sshConnection`: the variable SSH_CONNECTION; without an address in it: empty.
std::string OriginLine(std::string_view sshConnection);

/// Takes the line off the beginning of the first message. Nullopt, and nothing is taken, if there is none.
std::optional<Origin> TakeOrigin(std::string& message);

}  // namespace netconf

#endif
