// SPDX-License-Identifier: Apache-2.0
#include "netconf/xml.h"

#include <expat.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

namespace netconf {
namespace {

/// Separates namespace and name in expat's names; no XML text contains it.
constexpr char kSeparator = '\1';

/// "NAMESPACE 1 NAME 1 PREFIX", "NAMESPACE 1 NAME" or "NAME", as expat writes it, with kSeparator for 1.
void Split(std::string_view full, XmlAttribute& parts)
{
    parts.ns = {};
    parts.prefix = {};
    parts.name = full;
    const std::size_t first = full.find(kSeparator);
    if (first == std::string_view::npos) return;
    parts.ns = full.substr(0, first);
    parts.name = full.substr(first + 1);
    const std::size_t second = parts.name.find(kSeparator);
    if (second == std::string_view::npos) return;
    parts.prefix = parts.name.substr(second + 1);
    parts.name = parts.name.substr(0, second);
}

/// The offset of the first start tag with more than `most` attributes; npos if there is none, provided that
/// the text is well-formed. Runs before expat, which reads all attributes of an element before it reports
/// the first.
std::size_t FindCrowdedTag(std::string_view text, std::size_t most)
{
    const auto past = [&text](std::string_view end, std::size_t from) {
        return std::min(text.find(end, from), text.size());
    };
    std::size_t at = 0;
    while ((at = text.find('<', at)) != std::string_view::npos) {
        const std::string_view rest = text.substr(at);
        if (rest.starts_with("<!--")) {
            at = past("-->", at + 4);
        } else if (rest.starts_with("<![CDATA[")) {
            at = past("]]>", at);
        } else if (rest.starts_with("<?")) {
            at = past("?>", at);
        } else {
            const std::size_t tag = at;
            for (std::size_t count = 0; at < text.size() && text[at] != '>'; ++at) {
                if (text[at] != '"' && text[at] != '\'') continue;
                if (++count > most) return tag;
                at = past(text.substr(at, 1), at + 1);
            }
        }
    }
    return std::string_view::npos;
}

class Reader {
public:
    Reader(std::string_view document, XmlVisitor* visitor, const XmlLimits& limits)
        : m_document(document),
          m_visitor(visitor),
          m_limits(limits),
          m_parser(XML_ParserCreateNS("UTF-8", kSeparator), XML_ParserFree)
    {
    }

    std::optional<XmlProblem> Run()
    {
        XML_Parser parser = m_parser.get();
        if (parser == nullptr) return XmlProblem{XmlProblem::Kind::kTooBig, "out of memory", "out of memory"};
        if (const std::size_t tag = FindCrowdedTag(m_document, m_limits.attributes);
            tag != std::string_view::npos)
            return XmlProblem{XmlProblem::Kind::kTooBig,
                              PlaceInText(m_document, tag) + ": " + TooManyAttributes(), TooManyAttributes(),
                              tag};
        XML_SetUserData(parser, this);
        XML_SetReturnNSTriplet(parser, 1);
        XML_SetElementHandler(parser, &Reader::Start, &Reader::End);
        XML_SetStartNamespaceDeclHandler(parser, &Reader::Declaration);
        XML_SetStartDoctypeDeclHandler(parser, &Reader::Doctype);
        if (m_visitor != nullptr) XML_SetCharacterDataHandler(parser, &Reader::Text);
        // Every caller bounds its documents, to 1 GiB at most, so the size fits an int.
        const auto result =
            XML_Parse(parser, m_document.data(), static_cast<int>(m_document.size()), XML_TRUE);
        if (m_ended || (result == XML_STATUS_OK && m_problem.empty())) return std::nullopt;
        if (m_problem.empty()) m_problem = XML_ErrorString(XML_GetErrorCode(parser));
        const auto offset = std::max<XML_Index>(XML_GetCurrentByteIndex(parser), 0);
        return XmlProblem{m_kind, Where(m_problem), m_problem, static_cast<std::size_t>(offset)};
    }

private:
    static Reader& Self(void* data) { return *static_cast<Reader*>(data); }

    static void Declaration(void* data, const XML_Char* prefix, const XML_Char* uri)
    {
        Self(data).m_declarations.push_back(
            {prefix == nullptr ? std::string_view() : prefix, uri == nullptr ? std::string_view() : uri});
    }

    static void Start(void* data, const XML_Char* name, const XML_Char** attributes)
    {
        Self(data).OnStart(name, attributes);
    }

    void OnStart(std::string_view full, const XML_Char** attributes)
    {
        ++m_depth;
        if (m_ended || !m_problem.empty()) return;
        if (m_depth > m_limits.depth)
            return TooBig("more than " + std::to_string(m_limits.depth) +
                          " elements stand inside each other");
        if (++m_elements > m_limits.elements)
            return TooBig("there are more than " + std::to_string(m_limits.elements) +
                          " elements; send it in parts");
        XmlAttribute parts;
        Split(full, parts);
        if (!TakeAttributes(attributes)) return;
        if (full.size() > m_limits.nameLength) return NameTooLong();
        if (m_visitor == nullptr) return m_declarations.clear();
        XmlElement element;
        element.depth = m_depth;
        element.ns = parts.ns;
        element.name = parts.name;
        element.begin = static_cast<std::size_t>(XML_GetCurrentByteIndex(m_parser.get()));
        element.end = element.begin + static_cast<std::size_t>(XML_GetCurrentByteCount(m_parser.get()));
        element.attributes = m_attributes;
        element.declarations = m_declarations;
        if (!m_visitor->OnStart(element)) Finish();
        m_declarations.clear();
    }

    bool TakeAttributes(const XML_Char** attributes)
    {
        m_attributes.clear();
        for (; *attributes != nullptr; attributes += 2) {
            const std::string_view full(attributes[0]);
            XmlAttribute& attribute = m_attributes.emplace_back();
            Split(full, attribute);
            attribute.value = attributes[1];
            if (full.size() > m_limits.nameLength) {
                NameTooLong();
                return false;
            }
            if (attribute.value.size() > m_limits.valueLength) {
                TooBig("an attribute is longer than " + std::to_string(m_limits.valueLength) + " bytes");
                return false;
            }
        }
        return true;
    }

    [[nodiscard]] std::string TooManyAttributes() const
    {
        return "an element has more than " + std::to_string(m_limits.attributes) +
               " attributes and declarations of namespaces";
    }

    static void End(void* data, const XML_Char* /*element*/)
    {
        Reader& self = Self(data);
        if (self.m_visitor != nullptr && !self.m_ended && self.m_problem.empty()) {
            auto at = static_cast<std::size_t>(XML_GetCurrentByteIndex(self.m_parser.get()));
            // For an empty element expat reports the same tag at start and end.
            if (self.m_document.substr(at, 2) != "</")
                at += static_cast<std::size_t>(XML_GetCurrentByteCount(self.m_parser.get()));
            if (!self.m_visitor->OnEnd(self.m_depth, at)) self.Finish();
        }
        --self.m_depth;
    }

    static void Text(void* data, const XML_Char* text, int length)
    {
        Reader& self = Self(data);
        if (self.m_ended || !self.m_problem.empty()) return;
        if (!self.m_visitor->OnText(self.m_depth, {text, static_cast<std::size_t>(length)})) self.Finish();
    }

    static void Doctype(void* data, const XML_Char* /*name*/, const XML_Char* /*system*/,
                        const XML_Char* /*public*/, int /*internal*/)
    {
        Self(data).Stop(XmlProblem::Kind::kMalformed, "a document type declaration is not allowed");
    }

    void NameTooLong() { TooBig("a name is longer than " + std::to_string(m_limits.nameLength) + " bytes"); }
    void TooBig(std::string problem) { Stop(XmlProblem::Kind::kTooBig, std::move(problem)); }

    void Stop(XmlProblem::Kind kind, std::string problem)
    {
        if (m_problem.empty()) m_problem = std::move(problem);
        m_kind = kind;
        XML_StopParser(m_parser.get(), XML_FALSE);
    }

    /// The visitor has seen enough.
    void Finish()
    {
        m_ended = true;
        XML_StopParser(m_parser.get(), XML_FALSE);
    }

    [[nodiscard]] std::string Where(const std::string& problem) const
    {
        return "line " + std::to_string(XML_GetCurrentLineNumber(m_parser.get())) + ", column " +
               std::to_string(XML_GetCurrentColumnNumber(m_parser.get()) + 1) + ": " + problem;
    }

    std::string_view m_document;
    XmlVisitor* m_visitor;
    XmlLimits m_limits;
    std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> m_parser;
    std::vector<XmlAttribute> m_attributes;      // of the element at hand
    std::vector<XmlDeclaration> m_declarations;  // of the element at hand
    std::size_t m_elements = 0;
    std::size_t m_depth = 0;
    bool m_ended = false;  // by the visitor
    XmlProblem::Kind m_kind = XmlProblem::Kind::kMalformed;
    std::string m_problem;
};

std::optional<std::string> TextOf(std::optional<XmlProblem> problem)
{
    if (!problem) return std::nullopt;
    return std::move(problem->text);
}

std::string_view EntityFor(char character)
{
    switch (character) {
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    case '"':
        return "&quot;";
    case '\r':
        return "&#xD;";
    default:
        return {};
    }
}

constexpr std::string_view kCdata = "<![CDATA[";

/// Markup other than a tag, by how it begins and ends.
struct Section {
    std::string_view begin;
    std::string_view end;
};
constexpr Section kSections[] = {{"<!--", "-->"}, {kCdata, "]]>"}, {"<?", "?>"}};

const Section* SectionAt(std::string_view text)
{
    const auto* const found = std::find_if(std::begin(kSections), std::end(kSections),
                                           [text](const auto& each) { return text.starts_with(each.begin); });
    return found == std::end(kSections) ? nullptr : found;
}

}  // namespace

void AppendEscaped(std::string& out, std::string_view text)
{
    // Looked up byte by byte: most texts are short and have nothing to escape.
    static constexpr auto kIsSpecial = [] {
        std::array<bool, std::numeric_limits<unsigned char>::max() + 1> special{};
        for (const char character : std::string_view("&<>\"\r"))
            special[static_cast<unsigned char>(character)] = true;
        return special;
    }();
    std::size_t done = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (!kIsSpecial[static_cast<unsigned char>(text[at])]) continue;
        out.append(text.substr(done, at - done)).append(EntityFor(text[at]));
        done = at + 1;
    }
    out.append(text.substr(done));
}

std::string Escaped(std::string_view text)
{
    std::string out;
    AppendEscaped(out, text);
    return out;
}

void AppendElement(std::string& out, std::string_view name, std::string_view text)
{
    out.append("<").append(name).append(">");
    AppendEscaped(out, text);
    out.append("</").append(name).append(">");
}

std::string_view Trimmed(std::string_view text)
{
    const std::size_t begin = text.find_first_not_of(kXmlBlanks);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(kXmlBlanks) - begin + 1);
}

std::string PlaceInText(std::string_view text, std::size_t offset)
{
    const std::string_view before = text.substr(0, std::min(offset, text.size()));
    const auto lines = std::count(before.begin(), before.end(), '\n');
    const std::size_t lineBegin = before.rfind('\n') + 1;  // npos + 1 is 0
    return "line " + std::to_string(lines + 1) + ", column " + std::to_string(before.size() - lineBegin + 1);
}

std::optional<std::string_view> XmlElement::Attribute(std::string_view wanted) const
{
    for (const XmlAttribute& attribute : attributes)
        if (attribute.ns.empty() && attribute.name == wanted) return attribute.value;
    return std::nullopt;
}

std::optional<XmlProblem> ReadXmlWithin(std::string_view document, XmlVisitor& visitor,
                                        const XmlLimits& limits)
{
    return Reader(document, &visitor, limits).Run();
}

std::optional<std::string> ReadXml(std::string_view document, XmlVisitor& visitor)
{
    return TextOf(Reader(document, &visitor, {}).Run());
}

std::optional<std::string> CheckXml(std::string_view document)
{
    return TextOf(Reader(document, nullptr, {}).Run());
}

std::string PlainXml(std::string document)
{
    if (document.find("<!") == std::string::npos && document.find("<?") == std::string::npos) return document;
    std::string plain;
    plain.reserve(document.size());
    std::string lines;  // line breaks taken out and not yet written
    std::string_view rest = document;
    while (!rest.empty()) {
        // An attribute's value may hold ">", but no "<".
        const std::size_t open = std::min(rest.find('<'), rest.size());
        plain.append(rest.substr(0, open));
        rest.remove_prefix(open);
        const Section* const section = SectionAt(rest);
        if (section == nullptr) {
            const std::size_t name = std::min(rest.find_first_of(" \t\r\n/>", 2), rest.size());
            plain.append(rest.substr(0, name)).append(lines);
            rest.remove_prefix(name);
            lines.clear();
            continue;
        }
        rest.remove_prefix(section->begin.size());
        const std::string_view content = rest.substr(0, rest.find(section->end));
        if (section->begin == kCdata)
            AppendEscaped(plain, content);
        else
            lines.append(static_cast<std::size_t>(std::count(content.begin(), content.end(), '\n')), '\n');
        rest.remove_prefix(std::min(content.size() + section->end.size(), rest.size()));
    }
    return plain;
}

}  // namespace netconf
