// SPDX-License-Identifier: Apache-2.0
// One request to the database from within a command, and what its answer means for the operator.

#ifndef CLI_COMMANDS_REQUEST_H
#define CLI_COMMANDS_REQUEST_H

#include <string>
#include <string_view>
#include <utility>

#include "cli/commands/command.h"
#include "cli/data/data_tree.h"
#include "cli/data/error.h"

namespace netconf {
struct Reply;
struct RpcError;
}  // namespace netconf

namespace cli {

/// What the database refused.
class Refused : public Error {
public:
    Refused(const std::string& text, std::string where) : Error(text), m_where(std::move(where)) {}
    /// The place of the first error in words; empty if the database names none.
    [[nodiscard]] const std::string& Where() const { return m_where; }

private:
    std::string m_where;
};

/// Sends the operation and returns what stands in the answer's <data>. Warnings go to the call's error
/// stream, one line each; errors are thrown as Refused.
std::string Request(Call& call, std::string_view operation);

/// Writes the answer's warnings, one line each.
void TellWarnings(const Call& call, const netconf::Reply& reply);

enum class Warnings {
    kTold,
    kLeft,  // of an answer without errors, for the caller to tell
};

/// The same as Request, and returns the whole answer.
netconf::Reply RequestReply(Call& call, std::string_view operation, Warnings warnings = Warnings::kTold);

/// The same for an answer with data.
Tree RequestData(Call& call, std::string_view operation);

/// What was asked for can't be told: the process that knows it is not there or does not answer.
class MissingState : public Error {
public:
    using Error::Error;
};

/// The same for state, of which there may be less than was asked for: a warning then says why. If there is
/// nothing but warnings, they are thrown as MissingState.
Tree RequestState(Call& call, std::string_view operation);

/// The database's refusal in one line: its message, and the path concerned as words if the message does not
/// name it.
std::string ToText(const netconf::RpcError& error);

/// An instance path such as /c:config/s:oam/s:interface[s:name='eth1'] as words without the root; the path
/// itself if it is of another form.
std::string PathAsWords(std::string_view path);

}  // namespace cli

#endif
