// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/sent_config.h"

#include <algorithm>

namespace agent {

void SentConfig::Declare(const netconf::XmlElement& around)
{
    for (const netconf::XmlDeclaration& each : around.declarations)
        m_declared.insert_or_assign(std::string(each.prefix), std::string(each.ns));
}

void SentConfig::Open(const netconf::XmlElement& config)
{
    m_open = true;
    m_begin = config.end;
}

void SentConfig::Close(std::size_t end)
{
    m_open = false;
    m_end = end;
}

void SentConfig::AddTop(const netconf::XmlElement& element, std::string_view message)
{
    if (m_addedBytes > kMaxAdded) return;
    std::string text;
    for (const auto& [prefix, ns] : m_declared) {
        const auto isOwn = [&name = prefix](const netconf::XmlDeclaration& own) {
            return own.prefix == name;
        };
        if (std::any_of(element.declarations.begin(), element.declarations.end(), isOwn)) continue;
        text.append(" xmlns").append(prefix.empty() ? "" : ":").append(prefix).append("=\"");
        netconf::AppendEscaped(text, ns);
        text.append("\"");
    }
    m_addedBytes += text.size();
    m_added.emplace_back(message.find_first_of(" \t\r\n/>", element.begin), std::move(text));
}

std::string SentConfig::Text(std::string_view message) const
{
    std::string config;
    config.reserve(m_end - m_begin + m_addedBytes);
    std::size_t done = m_begin;
    for (const auto& [at, text] : m_added) {
        config.append(message.substr(done, at - done)).append(text);
        done = at;
    }
    config.append(message.substr(done, m_end - done));
    return config;
}

}  // namespace agent
