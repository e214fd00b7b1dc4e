// SPDX-License-Identifier: Apache-2.0
// The configuration inside a message as a text of its own: the bytes between <config> and </config>, with the
// namespace declarations from around them. Used by rpc_scan.

#ifndef AGENT_NETCONF_SENT_CONFIG_H
#define AGENT_NETCONF_SENT_CONFIG_H

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "netconf/xml.h"

namespace agent {

class SentConfig {
public:
    /// Notes what an element around the configuration declares; outer ones first.
    void Declare(const netconf::XmlElement& around);

    /// <config> begins; its own declarations were noted before.
    void Open(const netconf::XmlElement& config);
    /// <config> ends: `end` is the first byte of its end tag.
    void Close(std::size_t end);
    [[nodiscard]] bool IsOpen() const { return m_open; }
    /// Notes an element directly in <config>.
    void AddTop(const netconf::XmlElement& element, std::string_view message);

    /// Whether the message has a configuration that can be read alone.
    [[nodiscard]] bool IsThere() const { return m_end > m_begin && m_addedBytes <= kMaxAdded; }
    /// The top elements, each with the declarations added.
    [[nodiscard]] std::string Text(std::string_view message) const;
    /// Leaves <config> without content.
    void CutOut(std::string& message) const { message.erase(m_begin, m_end - m_begin); }

private:
    /// Bytes of the declarations, repeated at each top element: far more than any message needs.
    static constexpr std::size_t kMaxAdded = std::size_t{64} << 10;

    std::map<std::string, std::string, std::less<>> m_declared;  // namespaces by prefix
    std::vector<std::pair<std::size_t, std::string>> m_added;    // texts by the byte before which they go
    std::size_t m_addedBytes = 0;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    bool m_open = false;
};

}  // namespace agent

#endif
