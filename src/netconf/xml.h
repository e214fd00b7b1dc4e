// Reading and writing of the XML around the data: well-formedness, bounds, escaping. The data itself
// is libyang's matter. Refuses document types, so no entity is ever expanded.

#ifndef NETCONF_XML_H
#define NETCONF_XML_H

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "netconf/names.h"

namespace netconf {

/// Appends text so that it stands for itself in an element or in an attribute in double quotes.
void AppendEscaped(std::string& out, std::string_view text);
std::string Escaped(std::string_view text);

/// A start tag. The views are valid during the call only.
struct XmlElement {
    std::size_t depth = 0;  // 1 for the document's element
    std::string_view ns;    // empty: none
    std::string_view name;
    std::size_t begin = 0;  // byte offsets of the start tag
    std::size_t end = 0;
    bool hasAttributes = false;  // declarations of namespaces are none
    std::function<std::optional<std::string_view>(std::string_view name)> attribute;  // without namespace
};

/// What happens at the elements of a document, in document order.
class XmlVisitor {
public:
    virtual ~XmlVisitor() = default;
    /// False ends the reading, as if the document ended well there.
    virtual bool OnStart(const XmlElement& element) = 0;
    /// `begin`: where the end tag begins (for an empty element: behind its start tag).
    virtual void OnEnd(std::size_t depth, std::size_t begin) = 0;
    /// A piece of the text directly in the innermost open element.
    virtual void OnText(std::size_t depth, std::string_view text) = 0;
};

/// Reads the document; what is wrong with it, with line and column, or nullopt.
std::optional<std::string> ReadXml(std::string_view document, XmlVisitor& visitor,
                                   std::size_t maxDepth = kMaxDepth);

/// Only looks whether the document is well-formed and within bounds.
std::optional<std::string> CheckXml(std::string_view document, std::size_t maxDepth = kMaxDepth);

}  // namespace netconf

#endif
