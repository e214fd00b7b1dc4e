// SPDX-License-Identifier: Apache-2.0
// The path argument of the client API: a printf format with its arguments.

#ifndef PLATFORM_EMBEDDED_CONFD_FORMAT_H
#define PLATFORM_EMBEDDED_CONFD_FORMAT_H

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <string_view>

#include "platform/embedded/confd/error.h"

namespace embedded {

class FormattedPath {
public:
    static constexpr std::size_t kMaxLength = 8191;

    FormattedPath(const char* format, std::va_list arguments)
        : m_length(std::vsnprintf(m_text, sizeof m_text, format, arguments))
    {
    }

    /// Throws ClientError for a path that is too long or could not be formatted.
    [[nodiscard]] std::string_view Text() const
    {
        if (m_length < 0) throw ClientError("a path that can't be formatted");
        if (static_cast<std::size_t>(m_length) > kMaxLength)
            throw ClientError("a path of more than " + std::to_string(kMaxLength) + " characters");
        return {m_text, static_cast<std::size_t>(m_length)};
    }

private:
    char m_text[kMaxLength + 1];
    int m_length;
};

}  // namespace embedded

#endif
