// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/confirm.h"

#include <unistd.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>

#include "base/number.h"
#include "base/user.h"
#include "cli/commands/committed.h"
#include "cli/commands/request.h"
#include "cli/data/data_tree.h"
#include "cli/data/error.h"
#include "cli/data/state_node.h"
#include "cli/screens/history_text.h"
#include "netconf/client.h"
#include "netconf/requests.h"

namespace cli {
namespace {

/// The persist-id where the user has given none.
std::string OwnId() { return "swcli-" + base::UserName(::geteuid()); }

Tree RequestPending(Call& call)
{
    return RequestState(call, netconf::Get("<state xmlns=\"urn:switch:yang:switch-state\"><system><history "
                                           "xmlns=\"urn:switch:yang:switch-history\"><pending-confirmation/>"
                                           "</history></system></state>"));
}

/// Whether a commit waits that needs its persist-id.
bool IsPersistent(const Tree& state)
{
    return Children(state.get()).Of("system").Of("history").Of("pending-confirmation").Value("persistent") ==
           "true";
}

/// The id that confirms or cancels what waits: the one given, or the own one where one is needed.
std::string IdFor(Call& call)
{
    if (!call.arguments.text.empty()) return call.arguments.text;
    return IsPersistent(RequestPending(call)) ? OwnId() : std::string();
}

}  // namespace

void CommitConfirmed(Call& call)
{
    netconf::Confirmed options{.timeout = call.arguments.text, .comment = call.arguments.Named("comment")};
    if (!options.timeout.empty() && base::ToNumber<std::uint32_t>(options.timeout).value_or(0) == 0)
        throw Error("SECONDS is a number from 1 to 4294967295, not " + options.timeout);
    std::string id = call.arguments.Named("persist");
    const bool isExtended = IsPersistent(RequestPending(call));
    if (id.empty() && (isExtended || !call.shell.talks)) id = OwnId();
    (isExtended ? options.persistId : options.persist) = id;
    const bool waited =
        std::exchange(call.shell.waits, id.empty());  // also where its reply is not waited for
    netconf::Reply reply;
    try {
        reply = RequestReply(call, netconf::CommitConfirmed(options), Warnings::kLeft);
    } catch (const Refused&) {
        call.shell.waits = waited;
        throw;
    }
    Committed(call, reply);
    call.err << PendingText(RequestPending(call).get());
}

void Confirm(Call& call)
{
    Request(call, netconf::ConfirmCommit(IdFor(call)));
    call.shell.waits = false;
    call.err << "confirmed\n";
}

void Cancel(Call& call)
{
    const netconf::Reply reply = RequestReply(call, netconf::CancelCommit(IdFor(call)), Warnings::kLeft);
    call.shell.waits = false;
    Committed(call, reply, "rolled back by ", "nothing to undo");
}

}  // namespace cli
