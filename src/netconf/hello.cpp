// SPDX-License-Identifier: Apache-2.0
#include "netconf/hello.h"

#include <algorithm>
#include <optional>

#include "base/number.h"
#include "netconf/xml.h"

namespace netconf {
namespace {

class HelloVisitor final : public XmlVisitor {
public:
    bool OnStart(const XmlElement& element) override
    {
        const bool base = element.ns == kBaseNamespace;
        const std::size_t depth = element.depth;
        if (depth == 1) m_isHello = base && element.name == "hello";
        if (depth == 2) m_inList = base && element.name == "capabilities";
        m_isCapability = depth == 3 && m_inList && base && element.name == "capability";
        m_isSession = depth == 2 && base && element.name == "session-id";
        m_text.clear();
        return true;
    }

    bool OnEnd(std::size_t /*depth*/, std::size_t /*begin*/) override
    {
        if (m_isCapability) m_hello.capabilities.emplace_back(Trimmed(m_text));
        if (m_isSession) m_session = std::string(Trimmed(m_text));
        m_isCapability = false;
        m_isSession = false;
        return true;
    }

    bool OnText(std::size_t /*depth*/, std::string_view text) override
    {
        if (m_isCapability || m_isSession) m_text.append(text);
        return true;
    }

    base::expected<Hello, std::string> Result()
    {
        if (!m_isHello)
            return base::Unexpected("the first message is no <hello> of the NETCONF base namespace");
        if (m_session) {
            m_hello.sessionId = base::ToNumber<std::uint32_t>(*m_session).value_or(0);
            if (m_hello.sessionId == 0)
                return base::Unexpected("the <session-id> of the <hello> is no number from 1 to 4294967295");
        }
        return std::move(m_hello);
    }

private:
    Hello m_hello;
    std::optional<std::string> m_session;
    std::string m_text;
    bool m_isHello = false;
    bool m_inList = false;
    bool m_isCapability = false;
    bool m_isSession = false;
};

}  // namespace

bool Hello::Has(std::string_view capability) const
{
    return std::find(capabilities.begin(), capabilities.end(), capability) != capabilities.end();
}

std::string ToXml(const Hello& hello)
{
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<hello xmlns=\"";
    out.append(kBaseNamespace).append("\"><capabilities>");
    for (const std::string& capability : hello.capabilities) AppendElement(out, "capability", capability);
    out.append("</capabilities>");
    if (hello.sessionId != 0)
        out.append("<session-id>").append(std::to_string(hello.sessionId)).append("</session-id>");
    return out.append("</hello>");
}

base::expected<Hello, std::string> ParseHello(std::string_view xml)
{
    HelloVisitor visitor;
    if (auto problem = ReadXml(xml, visitor))
        return base::Unexpected("the <hello> can't be read: " + *problem);
    return visitor.Result();
}

std::optional<Framing> CommonFraming(const Hello& ours, const Hello& theirs)
{
    if (ours.Has(kBase11) && theirs.Has(kBase11)) return Framing::kChunked;
    if (ours.Has(kBase10) && theirs.Has(kBase10)) return Framing::kEndOfMessage;
    return std::nullopt;
}

}  // namespace netconf
