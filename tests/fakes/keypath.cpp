// SPDX-License-Identifier: Apache-2.0
#include "fakes/keypath.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "fakes/fake_schema.h"

namespace fakes {

namespace {

confd_value_t Element(const std::string& name, const std::string& schemaPath)
{
    confd_value_t value{};
    value.type = C_XMLTAG;
    const auto colon = name.find(':');
    if (colon != std::string::npos) {
        value.val.xmltag.tag = static_cast<std::uint32_t>(std::stoul(name.substr(colon + 1)));
        return value;
    }
    const SchemaNode* node = FindNode(schemaPath);
    if (node == nullptr) throw std::invalid_argument("no element " + schemaPath);
    value.val.xmltag = {node->tag, static_cast<std::uint32_t>(node->ns)};
    return value;
}

}  // namespace

confd_value_t Keypath::Text(const std::string& text)
{
    m_texts.push_back(text);
    confd_value_t value{};
    value.type = C_BUF;
    value.val.buf.ptr = reinterpret_cast<unsigned char*>(m_texts.back().data());
    value.val.buf.size = static_cast<unsigned>(text.size());
    return value;
}

Keypath::Keypath(const std::string& path)
{
    std::vector<std::vector<confd_value_t>> positions;  // from the root
    std::string schemaPath;
    for (std::size_t at = 0; at < path.size();) {
        auto end = path.find_first_of("/{", at + 1);
        end = end == std::string::npos ? path.size() : end;
        const std::string name = path.substr(at + 1, end - at - 1);
        schemaPath += "/" + name;
        positions.push_back({Element(name, schemaPath)});
        at = end;
        if (at == path.size() || path[at] != '{') continue;
        const auto close = path.find('}', at);
        std::vector<confd_value_t> keys;
        for (auto from = at + 1; from <= close;) {
            const auto blank = std::min(path.find(' ', from), close);
            keys.push_back(Text(path.substr(from, blank - from)));
            from = blank + 1;
        }
        positions.push_back(keys);
        at = close + 1;
    }
    std::reverse(positions.begin(), positions.end());
    for (auto& position : m_keypath.v) {
        for (confd_value_t& value : position) value.type = C_NOEXISTS;
    }
    m_keypath.len = static_cast<int>(positions.size());
    for (std::size_t i = 0; i < positions.size(); ++i)
        std::copy(positions[i].begin(), positions[i].end(), m_keypath.v[i]);
}

}  // namespace fakes
