// SPDX-License-Identifier: Apache-2.0
// What a source throws that can't be used on this machine. Of all sources.

#ifndef CAPTURE_UNAVAILABLE_H
#define CAPTURE_UNAVAILABLE_H

#include <stdexcept>
#include <string>

namespace capture {

/// The source can't be used here: no permission, no kernel support. The text is for operators.
class Unavailable : public std::runtime_error {
public:
    enum class Cause { kPermission, kKernel, kOther };
    Unavailable(Cause cause, const std::string& reason) : std::runtime_error(reason), m_cause(cause) {}
    [[nodiscard]] Cause Why() const { return m_cause; }

private:
    Cause m_cause;
};

}  // namespace capture

#endif
