// SPDX-License-Identifier: Apache-2.0
#include "guard/data_file.h"

#include <algorithm>

#include "guard/json_file.h"
#include "guard/walk.h"

namespace guard {
namespace {

constexpr std::string_view kOpen = "<data>";
constexpr std::string_view kClose = "</data>";

/// Checks what is inside <data>, which InOneElement puts around the file's elements, at depth 1.
class FileVisitor final : public netconf::XmlVisitor {
public:
    FileVisitor(const SchemaIndex& index, std::string_view text, const Limits& limits)
        : m_text(text), m_walk(index, index.Data(), limits.text)
    {
    }

    bool OnStart(const netconf::XmlElement& element) override
    {
        m_at = element.end;
        if (element.depth == 1) return true;
        const Node* child = m_walk.Find(element.ns, element.name);
        const bool known = child != nullptr && (child->Repeats() || m_walk.Mention(*child)) &&
                           m_walk.CheckAttributes(*child, element.attributes);
        if (known) m_walk.Enter(*child);
        return Goes(known, element.begin);
    }

    bool OnEnd(std::size_t depth, std::size_t begin) override
    {
        if (depth > 1 && !Goes(m_walk.Leave(), begin)) return false;
        // Behind the end tag; for an empty element `begin` is there already.
        m_at = m_text.substr(begin, 2) == "</" ? m_text.find('>', begin) + 1 : begin;
        return true;
    }

    bool OnText(std::size_t /*depth*/, std::string_view text) override
    {
        if (!Goes(m_walk.Text(text), m_at)) return false;
        m_at += text.size();
        return true;
    }

    [[nodiscard]] std::optional<FileProblem> Problem() const
    {
        if (!m_refused) return std::nullopt;
        return FileProblem{m_at, TextOf(m_walk.Problem())};
    }

private:
    bool Goes(bool on, std::size_t at)
    {
        if (on) return true;
        m_refused = true;
        m_at = at;
        return false;
    }

    std::string_view m_text;  // the whole document
    Walk m_walk;
    bool m_refused = false;
    std::size_t m_at = 0;  // byte offset of what comes next; in text an estimate, because of references
};

/// A file may hold the elements of several modules side by side, so one element is put around them.
/// Blanks replace the XML declaration, which is not allowed inside an element.
std::string InOneElement(std::string_view text)
{
    std::string whole(kOpen);
    whole.append(text);
    const std::size_t first = whole.find_first_not_of(" \t\r\n", kOpen.size());
    const std::size_t end = whole.find("?>");
    if (whole.compare(first, 5, "<?xml") == 0 && end != std::string::npos)
        for (std::size_t at = first; at < end + 2; ++at)
            if (whole[at] != '\n') whole[at] = ' ';
    return whole.append(kClose);
}

/// Checks the syntax only, without the schema.
class NoVisitor final : public netconf::XmlVisitor {
public:
    bool OnStart(const netconf::XmlElement& /*element*/) override { return true; }
    bool OnEnd(std::size_t /*depth*/, std::size_t /*begin*/) override { return true; }
    bool OnText(std::size_t /*depth*/, std::string_view /*text*/) override { return true; }
};

std::optional<FileProblem> CheckXmlFile(const SchemaIndex& index, std::string_view text, const Limits& limits)
{
    const std::string whole = InOneElement(text);
    const auto inText = [&text](std::size_t offset) {
        return std::min(offset - std::min(offset, kOpen.size()), text.size());
    };
    netconf::XmlLimits xml = limits.xml;
    ++xml.depth;
    ++xml.elements;
    FileVisitor visitor(index, whole, limits);
    auto malformed = netconf::ReadXmlWithin(whole, visitor, xml);
    const auto refused = visitor.Problem();
    if (refused) {
        NoVisitor nothing;
        malformed = netconf::ReadXmlWithin(whole, nothing, xml);
    }
    if (malformed) return FileProblem{inText(malformed->offset), malformed->reason};
    if (refused) return FileProblem{inText(refused->offset), refused->text};
    return std::nullopt;
}

}  // namespace

std::optional<Format> FormatOf(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return std::nullopt;
    if (text[first] == '{') return Format::kJson;
    if (text[first] == '<') return Format::kXml;
    return std::nullopt;
}

std::optional<FileProblem> CheckFile(const SchemaIndex& index, std::string_view text, Format format,
                                     const Limits& limits)
{
    return format == Format::kJson ? CheckJsonFile(index, text, limits) : CheckXmlFile(index, text, limits);
}

std::string PlaceInText(std::string_view text, std::size_t offset)
{
    const std::string_view before = text.substr(0, std::min(offset, text.size()));
    const auto lines = std::count(before.begin(), before.end(), '\n');
    const std::size_t lineBegin = before.rfind('\n') + 1;  // npos + 1 is 0
    return "line " + std::to_string(lines + 1) + ", column " + std::to_string(before.size() - lineBegin + 1);
}

}  // namespace guard
