// SPDX-License-Identifier: Apache-2.0
// The configuration inside a message as a text of its own: the bytes between <config> and </config>, with the
// namespaces that are declared around them. Used by rpc_scan.

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

    /// <config> begins, after its declarations were noted, and ends at that byte.
    void Open(const netconf::XmlElement& config);
    void Close(std::size_t end);
    [[nodiscard]] bool IsOpen() const { return m_open; }
    /// Notes an element directly in <config>.
    void AddTop(const netconf::XmlElement& element, std::string_view message);

    /// Whether there is any that can stand alone.
    [[nodiscard]] bool IsThere() const { return m_end > m_begin && m_addedBytes <= kMaxAdded; }
    [[nodiscard]] std::string Text(std::string_view message) const;
    /// Leaves <config> without content.
    void CutOut(std::string& message) const { message.erase(m_begin, m_end - m_begin); }

private:
    /// What the declarations may take, repeated at each element: far more than any message needs.
    static constexpr std::size_t kMaxAdded = std::size_t{64} << 10;

    std::map<std::string, std::string, std::less<>> m_declared;  // prefix: namespace
    std::vector<std::pair<std::size_t, std::string>> m_added;    // at that byte
    std::size_t m_addedBytes = 0;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    bool m_open = false;
};

}  // namespace agent

#endif
