// SPDX-License-Identifier: Apache-2.0
#include "metrics/address.h"

#include <arpa/inet.h>

#include <algorithm>
#include <optional>

#include "base/number.h"

namespace metrics {
namespace {

/// 127.0.0.0/8 and ::1.
bool IsLoopback(const std::string& address, bool version6)
{
    in6_addr six{};
    if (version6) return ::inet_pton(AF_INET6, address.c_str(), &six) == 1 && IN6_IS_ADDR_LOOPBACK(&six);
    in_addr four{};
    return ::inet_pton(AF_INET, address.c_str(), &four) == 1 && ::ntohl(four.s_addr) >> 24U == 127U;
}

bool IsAddress(const std::string& address, bool version6)
{
    in6_addr any{};
    return ::inet_pton(version6 ? AF_INET6 : AF_INET, address.c_str(), &any) == 1;
}

}  // namespace

base::expected<Address, std::string> ToAddress(std::string_view value)
{
    const std::size_t colon = value.rfind(':');
    std::string_view host = value.substr(0, std::min(colon, value.size()));
    const bool version6 = host.starts_with('[') && host.ends_with(']') && host.size() > 2;
    if (version6) host = host.substr(1, host.size() - 2);
    const std::string address(host);
    const auto port = colon == std::string_view::npos
                          ? std::nullopt
                          : base::ToNumber<std::uint16_t>(value.substr(colon + 1));
    if (!port || *port == 0 || !IsAddress(address, version6))
        return base::Unexpected(std::string("is no address with a port; use 127.0.0.1:PORT or [::1]:PORT"));
    if (!IsLoopback(address, version6))
        return base::Unexpected(
            std::string("can be reached from elsewhere, and metrics have no access control; use "
                        "127.0.0.1:PORT or [::1]:PORT, and a proxy for others"));
    return Address{address, *port};
}

}  // namespace metrics
