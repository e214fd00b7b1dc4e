// SPDX-License-Identifier: Apache-2.0
// XML for a reader that takes no comments, processing instructions and CDATA sections inside of values, as
// libyang's does not: the same document without them.

#ifndef NETCONF_PLAIN_XML_H
#define NETCONF_PLAIN_XML_H

#include <string>

namespace netconf {

/// Takes comments and processing instructions out of a well-formed document and writes CDATA sections as
/// text. The lines that they filled stand inside of the next tag then, so that line numbers stay what they
/// are.
std::string PlainXml(std::string document);

}  // namespace netconf

#endif
