// SPDX-License-Identifier: Apache-2.0
// Environment variables, by one rule for all processes.

#ifndef BASE_ENVIRONMENT_H
#define BASE_ENVIRONMENT_H

#include <cstdlib>
#include <functional>
#include <optional>
#include <string>

namespace base {

/// The value of a variable; nullopt if it is unset or empty, or if the program got more rights than its
/// caller has (secure_getenv(3)), since most of them name files.
inline std::optional<std::string> Variable(const char* name)
{
    const char* value = ::secure_getenv(name);
    return value != nullptr && *value != '\0' ? std::optional<std::string>(value) : std::nullopt;
}

/// The same as a dependency: tests have their own variables.
using Variables = std::function<std::optional<std::string>(const char* name)>;

/// The file that the log goes to (SFLOW_LOG); nullopt if it is standard error.
inline std::optional<std::string> LogFile()
{
    auto file = Variable("SFLOW_LOG");
    return file == "-" ? std::nullopt : file;
}

}  // namespace base

#endif
