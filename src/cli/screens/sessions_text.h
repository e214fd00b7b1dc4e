// SPDX-License-Identifier: Apache-2.0
// Who has a session, for people.

#ifndef CLI_SCREENS_SESSIONS_TEXT_H
#define CLI_SCREENS_SESSIONS_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>

struct lyd_node;

namespace cli {

/// A row a session: who, from where, since when, what it has locked, and what it has edited and not
/// committed. `data`: of the top-level containers netconf-state and state the first, or null. `own`: the
/// shell's session, which has a star; 0 if it has none.
std::string SessionsText(const lyd_node* data, std::uint32_t own, std::size_t width);

}  // namespace cli

#endif
