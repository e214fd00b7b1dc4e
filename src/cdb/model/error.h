// SPDX-License-Identifier: Apache-2.0
// The errors of the configuration database, with the tags of RFC 6241's error list. The agent maps them to
// NETCONF in one place.

#ifndef CDB_MODEL_ERROR_H
#define CDB_MODEL_ERROR_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace cdb {

/// The tags of RFC 6241, appendix A, that the database uses.
enum class ErrorTag : std::uint8_t {
    kInUse,
    kInvalidValue,
    kTooBig,
    kMissingAttribute,
    kBadAttribute,
    kUnknownAttribute,
    kMissingElement,
    kBadElement,
    kUnknownElement,
    kUnknownNamespace,
    kAccessDenied,
    kLockDenied,
    kResourceDenied,
    kDataExists,
    kDataMissing,
    kOperationNotSupported,
    kOperationFailed,
    kMalformedMessage
};

struct Error {
    ErrorTag tag = ErrorTag::kOperationFailed;
    std::string message;   // names the thing and the remedy; one sentence
    std::string path{};    // data path of the node concerned; may be empty
    std::string appTag{};  // of RFC 7950, section 15; may be empty
    /// error-info, element name and content: bad-element, bad-attribute, bad-namespace, session-id.
    std::vector<std::pair<std::string, std::string>> info{};
    friend bool operator==(const Error&, const Error&) = default;
};

/// The errors' messages, joined by "; ".
inline std::string TextOf(const std::vector<Error>& errors)
{
    std::string text;
    for (const Error& error : errors) text += (text.empty() ? "" : "; ") + error.message;
    return text;
}

/// An error that ends the attempt or the process: a schema that does not load, a store that can't be opened.
class FatalError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace cdb

#endif
