// SPDX-License-Identifier: Apache-2.0
// Reading and writing of the XML around the data: well-formedness, bounds, escaping. The data itself
// is libyang's matter. Refuses document types, so no entity is ever expanded, and what would cost a
// reader more than its length.

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

/// Appends text so that it stands for itself in an element or in an attribute in double quotes.
void AppendEscaped(std::string& out, std::string_view text);
std::string Escaped(std::string_view text);

/// What a document may have. Each bound is reached long before the work for it is felt.
struct XmlLimits {
    std::size_t depth = kMaxDepth;                    // elements inside each other
    std::size_t elements = 2'000'000;                 // in all
    std::size_t attributes = 64;                      // of one element, declarations of namespaces among them
    std::size_t nameLength = 1024;                    // of a name and its namespace together
    std::size_t valueLength = std::size_t{64} << 10;  // of one attribute's value
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
    std::string_view ns;      // empty: none any more
};

/// A start tag. The views are valid during the call only.
struct XmlElement {
    std::size_t depth = 0;  // 1 for the document's element
    std::string_view ns;    // empty: none
    std::string_view name;
    std::size_t begin = 0;  // byte offsets of the start tag
    std::size_t end = 0;
    std::span<const XmlAttribute> attributes{};  // declarations of namespaces are none
    std::span<const XmlDeclaration> declarations{};

    /// The value of the attribute of this name that has no namespace.
    [[nodiscard]] std::optional<std::string_view> Attribute(std::string_view wanted) const;
};

/// What happens at the elements of a document, in document order.
class XmlVisitor {
public:
    virtual ~XmlVisitor() = default;
    /// False ends the reading, as if the document ended well there.
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

/// Reads the document.
std::optional<XmlProblem> ReadXmlWithin(std::string_view document, XmlVisitor& visitor,
                                        const XmlLimits& limits);

/// The same with the usual limits; what is wrong with the document, with line and column.
std::optional<std::string> ReadXml(std::string_view document, XmlVisitor& visitor,
                                   std::size_t maxDepth = kMaxDepth);

/// Only looks whether the document is well-formed and within bounds.
std::optional<std::string> CheckXml(std::string_view document, std::size_t maxDepth = kMaxDepth);

}  // namespace netconf

#endif
