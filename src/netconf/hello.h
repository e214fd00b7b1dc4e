// SPDX-License-Identifier: Apache-2.0
// The first message of each side (RFC 6241, section 8.1).

#ifndef NETCONF_HELLO_H
#define NETCONF_HELLO_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/expected.h"
#include "netconf/framing.h"

namespace netconf {

struct Hello {
    std::vector<std::string> capabilities;
    std::uint32_t sessionId = 0;  // given by the server, 0 in a client's hello

    [[nodiscard]] bool Has(std::string_view capability) const;
    friend bool operator==(const Hello&, const Hello&) = default;
};

std::string ToXml(const Hello& hello);

/// The hello, or what is wrong with it.
base::expected<Hello, std::string> ParseHello(std::string_view xml);

/// The framing that both sides use after their hellos; nullopt if they have no version in common.
std::optional<Framing> CommonFraming(const Hello& ours, const Hello& theirs);

}  // namespace netconf

#endif
