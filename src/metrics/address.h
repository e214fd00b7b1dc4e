// SPDX-License-Identifier: Apache-2.0
// Where a program serves its metrics, as its option --metrics names it. Used by the command lines.

#ifndef METRICS_ADDRESS_H
#define METRICS_ADDRESS_H

#include <cstdint>
#include <string>
#include <string_view>

#include "base/expected.h"

namespace metrics {

/// An address of the loopback interface, IPv4 or IPv6.
struct Address {
    std::string address;
    std::uint16_t port = 0;
    friend bool operator==(const Address&, const Address&) = default;
};

/// Reads "127.0.0.1:PORT" or "[::1]:PORT"; else returns what is wrong, which goes on from the value: "is no
/// address with a port; use ...".
base::expected<Address, std::string> ToAddress(std::string_view value);

}  // namespace metrics

#endif
