// SPDX-License-Identifier: Apache-2.0
// Reads and writes the XML around the data: well-formedness, bounds, escaping. libyang reads the data
// itself. Refuses document types, so that no entity is ever expanded, and documents beyond the bounds.

#ifndef NETCONF_XML_H
#define NETCONF_XML_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "netconf/names.h"

namespace netconf {

/// Appends the text, escaped for an element or for an attribute in double quotes.
void AppendEscaped(std::string& out, std::string_view text);
std::string Escaped(std::string_view text);
/// Appends an element without a prefix that holds the text.
void AppendElement(std::string& out, std::string_view name, std::string_view text);

/// What XML takes for blank.
inline constexpr std::string_view kXmlBlanks = " \t\r\n";
/// The text without the blanks around it.
std::string_view Trimmed(std::string_view text);
/// "line 3, column 7", for the byte at `offset`. A column is a byte; both count from 1.
std::string PlaceInText(std::string_view text, std::size_t offset);

/// The namespace of xml:lang and the like.
inline constexpr std::string_view kXmlNamespace = "http://www.w3.org/XML/1998/namespace";

/// The bounds of a document.
struct XmlLimits {
    std::size_t depth = kMaxDepth;                    // elements inside each other
    std::size_t elements = 2'000'000;                 // in all
    std::size_t attributes = 64;                      // of one element, declarations of namespaces among them
    std::size_t nameLength = 1024;                    // bytes of a name and its namespace together
    std::size_t valueLength = std::size_t{64} << 10;  // bytes of one attribute's value
};

/// The views are valid during the call only.
struct XmlAttribute {
    std::string_view ns;  // empty: none
    std::string_view name;
    std::string_view prefix;  // empty: none
    std::string_view value;
};

/// The views are valid during the call only.
struct XmlDeclaration {
    std::string_view prefix;  // empty: the default namespace
    std::string_view ns;      // empty: the default namespace is undeclared
};

/// A start tag. The views are valid during the call only.
struct XmlElement {
    std::size_t depth = 0;  // 1 for the document's element
    std::string_view ns;    // empty: none
    std::string_view name;
    std::size_t begin = 0;  // byte offsets of the start tag
    std::size_t end = 0;
    std::span<const XmlAttribute> attributes{};  // without declarations of namespaces
    std::span<const XmlDeclaration> declarations{};

    /// The value of the attribute of this name without namespace; nullopt if there is none.
    [[nodiscard]] std::optional<std::string_view> Attribute(std::string_view wanted) const;
};

/// Receives the parts of a document, in document order.
class XmlVisitor {
public:
    virtual ~XmlVisitor() = default;
    /// Returning false ends the reading without a problem.
    virtual bool OnStart(const XmlElement& element) = 0;
    /// `begin`: where the end tag begins (for an empty element: behind its start tag). False as above.
    virtual bool OnEnd(std::size_t depth, std::size_t begin) = 0;
    /// A piece of the text directly in the innermost open element. False as above.
    virtual bool OnText(std::size_t depth, std::string_view text) = 0;
};

/// Why a document was not read to its end.
struct XmlProblem {
    enum class Kind : std::uint8_t { kMalformed, kTooBig } kind = Kind::kMalformed;
    std::string text;        // with line and column
    std::string reason{};    // the same without
    std::size_t offset = 0;  // in bytes, where the reading stopped
};

/// Reads the document. Returns why it was not read to its end; nullopt if it was, or the visitor ended it.
std::optional<XmlProblem> ReadXmlWithin(std::string_view document, XmlVisitor& visitor,
                                        const XmlLimits& limits);

/// The same with the default limits. Returns what is wrong, with line and column.
std::optional<std::string> ReadXml(std::string_view document, XmlVisitor& visitor);

/// Only checks that the document is well-formed and within bounds; returns as ReadXml does.
std::optional<std::string> CheckXml(std::string_view document);

/// Takes comments and processing instructions out of a well-formed document and writes CDATA sections as
/// text, because libyang does not take them inside values. Their line breaks go into the next tag, so that
/// line numbers do not change.
std::string PlainXml(std::string document);

}  // namespace netconf

#endif
