// SPDX-License-Identifier: Apache-2.0
// Messages between processes in protobuf's text form, which the programs' runtime does not have: read and
// written through the definitions in src/.

#ifndef SUPPORT_PROTO_TEXT_H
#define SUPPORT_PROTO_TEXT_H

#include <string>

namespace google::protobuf {
class MessageLite;
}

namespace support {

/// On one line.
std::string TextOf(const google::protobuf::MessageLite& message);

/// Replaces the message. False if the text is none of its type, and then it stays as it was.
bool FromText(const std::string& text, google::protobuf::MessageLite& message);

}  // namespace support

#endif
