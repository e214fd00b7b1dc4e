// SPDX-License-Identifier: Apache-2.0
// The names and bounds that both ends of a NETCONF session agree on (RFC 6241, RFC 6242).

#ifndef NETCONF_NAMES_H
#define NETCONF_NAMES_H

#include <cstddef>
#include <string_view>

namespace netconf {

inline constexpr std::string_view kBaseNamespace = "urn:ietf:params:xml:ns:netconf:base:1.0";
inline constexpr std::string_view kHistoryNamespace = "urn:switch:yang:switch-history";
/// Of the attribute "default" (RFC 6243, section 6), and of the YANG module that stands for it in libyang.
inline constexpr std::string_view kDefaultAttributeNamespace = "urn:ietf:params:xml:ns:netconf:default:1.0";
inline constexpr std::string_view kWithDefaultsNamespace =
    "urn:ietf:params:xml:ns:yang:ietf-netconf-with-defaults";
inline constexpr std::string_view kBase10 = "urn:ietf:params:netconf:base:1.0";
inline constexpr std::string_view kBase11 = "urn:ietf:params:netconf:base:1.1";
/// Of <notification> and <create-subscription> (RFC 5277).
inline constexpr std::string_view kNotificationNamespace = "urn:ietf:params:xml:ns:netconf:notification:1.0";

/// Of <get-data> and <edit-data> (RFC 8526), and of the attribute "origin" (RFC 8342, section 7).
inline constexpr std::string_view kNmdaNamespace = "urn:ietf:params:xml:ns:yang:ietf-netconf-nmda";
inline constexpr std::string_view kOriginNamespace = "urn:ietf:params:xml:ns:yang:ietf-origin";

/// Bytes. The client takes no longer message, and cdbd by default neither; a longer one ends the session.
inline constexpr std::size_t kMaxMessage = std::size_t{64} << 20;

/// The elements of a message nest at most this deep.
inline constexpr std::size_t kMaxDepth = 128;

}  // namespace netconf

#endif
