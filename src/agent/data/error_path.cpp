// SPDX-License-Identifier: Apache-2.0
#include "agent/data/error_path.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <cstddef>

namespace agent {
namespace {

constexpr const char* kNetconf = "ietf-netconf";

bool IsNameBegin(char c) { return c != '.' && c != '*' && (c < '0' || c > '9'); }

class PathWriter {
public:
    explicit PathWriter(const ly_ctx* context) : m_context(context) {}

    /// A name of the path, with or without its module's in front.
    void Name(std::string_view name)
    {
        const std::size_t colon = name.find(':');
        if (colon != std::string_view::npos) {
            m_module = name.substr(0, colon);
            name.remove_prefix(colon + 1);
        }
        if (m_result.text == "/" && IsOperation(name)) {
            Append(kNetconf, "rpc");
            m_result.text += '/';
        }
        Append(m_module, name);
    }

    /// "[name='eth1']", "[1]", "[.='x']".
    void Predicate(std::string_view predicate)
    {
        const std::size_t equals = predicate.find('=');
        if (equals == std::string_view::npos || !IsNameBegin(predicate[1])) {
            m_result.text += predicate;
            return;
        }
        m_result.text += '[';
        const std::string_view name = predicate.substr(1, equals - 1);
        const std::size_t colon = name.find(':');
        if (colon == std::string_view::npos)
            Append(m_module, name);
        else
            Append(std::string(name.substr(0, colon)), name.substr(colon + 1));
        m_result.text += predicate.substr(equals);
    }

    void Slash() { m_result.text += '/'; }

    ErrorPath Take() { return std::move(m_result); }

private:
    [[nodiscard]] bool IsOperation(std::string_view name) const
    {
        const lys_module* module = ly_ctx_get_module_implemented(m_context, m_module.c_str());
        return module != nullptr &&
               lys_find_child(nullptr, module, name.data(), name.size(), LYS_RPC, 0) != nullptr;
    }

    void Append(const std::string& module, std::string_view name)
    {
        const lys_module* known = ly_ctx_get_module_implemented(m_context, module.c_str());
        if (known != nullptr) {
            const auto same = [&module](const auto& prefix) { return prefix.first == module; };
            if (std::none_of(m_result.prefixes.begin(), m_result.prefixes.end(), same))
                m_result.prefixes.emplace_back(module, known->ns);
            m_result.text.append(module).append(":");
        }
        m_result.text += name;
    }

    const ly_ctx* m_context;
    std::string m_module;
    ErrorPath m_result;
};

/// The end of the predicate that begins the text: behind its first ']' outside quotes.
std::size_t EndOfPredicate(std::string_view text)
{
    char quote = 0;
    for (std::size_t at = 1; at < text.size(); ++at) {
        if (quote != 0) {
            if (text[at] == quote) quote = 0;
        } else if (text[at] == '\'' || text[at] == '"') {
            quote = text[at];
        } else if (text[at] == ']') {
            return at + 1;
        }
    }
    return text.size();
}

}  // namespace

ErrorPath ToErrorPath(std::string_view dataPath, const ly_ctx* context)
{
    PathWriter writer(context);
    while (!dataPath.empty()) {
        std::size_t length = 1;
        if (dataPath.front() == '/') {
            writer.Slash();
        } else if (dataPath.front() == '[') {
            length = EndOfPredicate(dataPath);
            writer.Predicate(dataPath.substr(0, length));
        } else {
            length = std::min(dataPath.find_first_of("/["), dataPath.size());
            writer.Name(dataPath.substr(0, length));
        }
        dataPath.remove_prefix(length);
    }
    return writer.Take();
}

std::string PathInConfig(std::string_view dataPath)
{
    constexpr std::string_view kConfig = "/config/";
    if (!dataPath.starts_with("/ietf-netconf:")) return {};
    const std::size_t config = dataPath.find(kConfig);
    if (config == std::string_view::npos) return {};
    const std::string_view inner = dataPath.substr(config + kConfig.size() - 1);
    const bool isQualified = inner.substr(0, inner.find('/', 1)).find(':') != std::string_view::npos;
    return isQualified ? std::string(inner) : std::string();
}

}  // namespace agent
