// SPDX-License-Identifier: Apache-2.0
#include "netconf/client_reply.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

#include "netconf/xml.h"

namespace netconf {
namespace {

/// <rpc-reply> stands at depth 1, <data> and <rpc-error> at 2, an error's elements at 3, what is in
/// <error-info> at 4.
class ReplyVisitor final : public XmlVisitor {
public:
    explicit ReplyVisitor(Reply& reply) : m_reply(reply) {}

    /// The name of the first element without a namespace; empty if there is none.
    [[nodiscard]] const std::string& Bare() const { return m_bare; }
    [[nodiscard]] bool IsReply() const { return m_isReply; }
    [[nodiscard]] std::pair<std::size_t, std::size_t> Data() const { return {m_dataBegin, m_dataEnd}; }

    bool OnStart(const XmlElement& element) override
    {
        // No valid reply has such elements, and libyang's parser does not survive two of one name.
        if (element.ns.empty() && element.depth > 1) {
            m_bare = element.name;
            return false;
        }
        const std::string_view name = element.ns == kBaseNamespace ? element.name : std::string_view{};
        if (element.depth == 1) m_isReply = name == "rpc-reply";
        if (element.depth == 2) StartSecond(name, element.end);
        if (!m_inError) return true;
        if (element.depth == 3) {
            m_field = FieldOf(name);
            m_inInfo = name == "error-info";
        }
        if (element.depth == 4 && m_inInfo) {
            m_reply.errors.back().info.emplace_back(element.name, "");
            m_field = &m_reply.errors.back().info.back().second;
        }
        return true;
    }

    bool OnEnd(std::size_t depth, std::size_t begin) override
    {
        if (depth == 2) {
            if (m_inData) m_dataEnd = begin;
            m_inData = false;
            m_inError = false;
        }
        if (depth == 3) m_inInfo = false;
        if (depth == 3 || depth == 4) m_field = nullptr;
        return true;
    }

    bool OnText(std::size_t /*depth*/, std::string_view text) override
    {
        if (m_field != nullptr) m_field->append(text);
        return true;
    }

private:
    void StartSecond(std::string_view name, std::size_t end)
    {
        m_inData = name == "data";
        m_inError = name == "rpc-error";
        if (m_inData) m_dataBegin = end;
        if (m_inError) m_reply.errors.push_back(RpcError{"", "", "", "", "", "", {}, {}});
    }

    std::string* FieldOf(std::string_view name)
    {
        RpcError& error = m_reply.errors.back();
        if (name == "error-type") return &error.type;
        if (name == "error-tag") return &error.tag;
        if (name == "error-severity") return &error.severity;
        if (name == "error-app-tag") return &error.appTag;
        if (name == "error-path") return &error.path;
        if (name == "error-message") return &error.message;
        return nullptr;
    }

    Reply& m_reply;
    std::string* m_field = nullptr;
    std::string m_bare;
    bool m_isReply = false;
    bool m_inData = false;
    bool m_inError = false;
    bool m_inInfo = false;
    std::size_t m_dataBegin = 0;
    std::size_t m_dataEnd = 0;
};

}  // namespace

base::expected<Reply, std::string> ParseReply(std::string xml)
{
    Reply reply;
    reply.xml = std::move(xml);
    ReplyVisitor visitor(reply);
    if (auto problem = ReadXml(reply.xml, visitor))
        return base::Unexpected("the reply can't be read: " + *problem);
    if (!visitor.Bare().empty())
        return base::Unexpected("the element <" + visitor.Bare() +
                                "> of the server's message has no namespace");
    if (!visitor.IsReply()) return base::Unexpected("the server's message is no <rpc-reply>");
    const auto [begin, end] = visitor.Data();
    if (end > begin) reply.data = reply.xml.substr(begin, end - begin);
    reply.ok = std::all_of(reply.errors.begin(), reply.errors.end(),
                           [](const RpcError& error) { return error.IsWarning(); });
    return reply;
}

}  // namespace netconf
