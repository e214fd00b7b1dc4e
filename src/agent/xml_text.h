// Text from other processes, made fit for XML (XML 1.0, section 2.2; RFC 7950, section 14): what can't stand
// there would make the whole reply unreadable.

#ifndef AGENT_XML_TEXT_H
#define AGENT_XML_TEXT_H

#include <string>
#include <string_view>

namespace agent {

/// Whether the bytes are UTF-8 and every character may stand in XML.
bool IsXmlText(std::string_view text);

/// The text with U+FFFD in the place of what can't stand in XML.
std::string FitForXml(std::string_view text);

}  // namespace agent

#endif
