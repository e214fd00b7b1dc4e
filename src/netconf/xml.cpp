#include "netconf/xml.h"

#include <expat.h>

#include <array>
#include <limits>
#include <memory>

namespace netconf {
namespace {

/// Between namespace and name in expat's element names; no XML text contains it.
constexpr char kSeparator = '\1';

class Reader {
public:
    Reader(std::string_view document, XmlVisitor* visitor, std::size_t maxDepth)
        : m_document(document),
          m_visitor(visitor),
          m_maxDepth(maxDepth),
          m_parser(XML_ParserCreateNS("UTF-8", kSeparator), XML_ParserFree)
    {
    }

    std::optional<std::string> Run()
    {
        XML_Parser parser = m_parser.get();
        if (parser == nullptr) return "out of memory";
        XML_SetUserData(parser, this);
        XML_SetElementHandler(parser, &Reader::Start, &Reader::End);
        XML_SetStartDoctypeDeclHandler(parser, &Reader::Doctype);
        if (m_visitor != nullptr) XML_SetCharacterDataHandler(parser, &Reader::Text);
        // kMaxMessage, which bounds every document, fits an int.
        if (XML_Parse(parser, m_document.data(), static_cast<int>(m_document.size()), XML_TRUE) ==
                XML_STATUS_OK ||
            m_ended)
            return std::nullopt;
        return Where(m_problem.empty() ? XML_ErrorString(XML_GetErrorCode(parser)) : m_problem);
    }

private:
    static Reader& Self(void* data) { return *static_cast<Reader*>(data); }

    static void Start(void* data, const XML_Char* name, const XML_Char** attributes)
    {
        Reader& self = Self(data);
        if (++self.m_depth > self.m_maxDepth)
            return self.Stop("more than " + std::to_string(self.m_maxDepth) +
                             " elements stand inside each other");
        if (self.m_visitor == nullptr || self.m_ended) return;
        const std::string_view full(name);
        const std::size_t separator = full.find(kSeparator);
        const bool bare = separator == std::string_view::npos;
        XmlElement element;
        element.depth = self.m_depth;
        element.ns = bare ? std::string_view{} : full.substr(0, separator);
        element.name = bare ? full : full.substr(separator + 1);
        element.begin = static_cast<std::size_t>(XML_GetCurrentByteIndex(self.m_parser.get()));
        element.end = element.begin + static_cast<std::size_t>(XML_GetCurrentByteCount(self.m_parser.get()));
        element.hasAttributes = *attributes != nullptr;
        element.attribute = [attributes](std::string_view wanted) -> std::optional<std::string_view> {
            for (const XML_Char** at = attributes; *at != nullptr; at += 2)
                if (wanted == *at) return at[1];
            return std::nullopt;
        };
        if (self.m_visitor->OnStart(element)) return;
        self.m_ended = true;
        XML_StopParser(self.m_parser.get(), XML_FALSE);
    }

    static void End(void* data, const XML_Char* /*element*/)
    {
        Reader& self = Self(data);
        if (self.m_visitor != nullptr && !self.m_ended) {
            auto at = static_cast<std::size_t>(XML_GetCurrentByteIndex(self.m_parser.get()));
            // Of an empty element expat reports the one tag at both ends.
            if (self.m_document.substr(at, 2) != "</")
                at += static_cast<std::size_t>(XML_GetCurrentByteCount(self.m_parser.get()));
            self.m_visitor->OnEnd(self.m_depth, at);
        }
        --self.m_depth;
    }

    static void Text(void* data, const XML_Char* text, int length)
    {
        Reader& self = Self(data);
        if (!self.m_ended) self.m_visitor->OnText(self.m_depth, {text, static_cast<std::size_t>(length)});
    }

    static void Doctype(void* data, const XML_Char* /*name*/, const XML_Char* /*system*/,
                        const XML_Char* /*public*/, int /*internal*/)
    {
        Self(data).Stop("a document type declaration is not allowed");
    }

    void Stop(std::string problem)
    {
        if (m_problem.empty()) m_problem = std::move(problem);
        XML_StopParser(m_parser.get(), XML_FALSE);
    }

    [[nodiscard]] std::string Where(const std::string& problem) const
    {
        return "line " + std::to_string(XML_GetCurrentLineNumber(m_parser.get())) + ", column " +
               std::to_string(XML_GetCurrentColumnNumber(m_parser.get()) + 1) + ": " + problem;
    }

    std::string_view m_document;
    XmlVisitor* m_visitor;
    std::size_t m_maxDepth;
    std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> m_parser;
    std::size_t m_depth = 0;
    bool m_ended = false;  // by the visitor
    std::string m_problem;
};

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

}  // namespace

void AppendEscaped(std::string& out, std::string_view text)
{
    // Looked up byte by byte: most texts are short and have nothing to escape.
    static constexpr auto kIsSpecial = [] {
        std::array<bool, std::numeric_limits<unsigned char>::max() + 1> special{};
        for (const unsigned char character : std::string_view("&<>\"\r")) special[character] = true;
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

std::optional<std::string> ReadXml(std::string_view document, XmlVisitor& visitor, std::size_t maxDepth)
{
    return Reader(document, &visitor, maxDepth).Run();
}

std::optional<std::string> CheckXml(std::string_view document, std::size_t maxDepth)
{
    return Reader(document, nullptr, maxDepth).Run();
}

}  // namespace netconf
