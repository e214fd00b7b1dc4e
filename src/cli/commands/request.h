// SPDX-License-Identifier: Apache-2.0
// One request to the database from within a command, and what its answer means for the operator.

#ifndef CLI_COMMANDS_REQUEST_H
#define CLI_COMMANDS_REQUEST_H

#include <string>
#include <string_view>

#include "cli/commands/command.h"
#include "cli/data/data_tree.h"
#include "cli/data/error.h"

namespace netconf {
struct Reply;
struct RpcError;
}  // namespace netconf

namespace cli {

/// Sends the operation and returns what stands in the answer's <data>. Warnings go to the call's error
/// stream, one line each; errors are thrown as Error.
std::string Request(Call& call, std::string_view operation);

/// The same, and returns the whole answer.
netconf::Reply RequestReply(Call& call, std::string_view operation);

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
