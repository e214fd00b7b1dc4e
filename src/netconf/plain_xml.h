// SPDX-License-Identifier: Apache-2.0
// The same XML without comments, processing instructions and CDATA sections, which libyang does not take
// inside values.

#ifndef NETCONF_PLAIN_XML_H
#define NETCONF_PLAIN_XML_H

#include <string>

namespace netconf {

/// Takes comments and processing instructions out of a well-formed document and writes CDATA sections as
/// text. Their line breaks go into the next tag, so that line numbers do not change.
std::string PlainXml(std::string document);

}  // namespace netconf

#endif
