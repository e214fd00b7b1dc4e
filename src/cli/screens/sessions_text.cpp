// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/sessions_text.h"

#include <libyang/libyang.h>

#include <map>

#include "cli/data/state_node.h"
#include "cli/screens/text_table.h"

namespace cli {
namespace {

using BySession = std::map<std::string, std::string>;

void Join(BySession& texts, const std::string& session, const std::string& text)
{
    std::string& all = texts[session];
    all += (all.empty() ? "" : ", ") + text;
}

BySession Locks(const Children& server)
{
    BySession locks;
    server.Of("datastores").ForEach("datastore", [&](const lyd_node* node) {
        const Children datastore(node);
        const Children lock = datastore.Of("locks").Of("global-lock");
        if (!lock.None()) Join(locks, lock.Value("locked-by-session"), datastore.Value("name"));
    });
    return locks;
}

BySession Edits(const Children& candidates)
{
    BySession edits;
    candidates.ForEach("editor", [&](const lyd_node* node) {
        const Children editor(node);
        Join(edits, editor.Value("session-id"), editor.Value("edits"));
    });
    candidates.ForEach("private", [&](const lyd_node* node) {
        const Children own(node);
        Join(edits, own.Value("session-id"), own.Value("edits") + " private");
    });
    return edits;
}

std::string At(const BySession& texts, const std::string& session)
{
    const auto found = texts.find(session);
    return found == texts.end() ? "-" : found->second;
}

/// "switch", "192.0.2.7".
std::string From(const Children& session)
{
    const std::string host = session.Value("source-host");
    const bool overSsh = session.Value("transport").ends_with("netconf-ssh");
    return overSsh ? (host == "-" ? "over SSH" : host) : "switch";
}

const lyd_node* TopLevel(const lyd_node* data, std::string_view name)
{
    for (const lyd_node* each = data; each != nullptr; each = each->next)
        if (name == LYD_NAME(each)) return each;
    return nullptr;
}

}  // namespace

std::string SessionsText(const lyd_node* data, std::uint32_t own, std::size_t width)
{
    const Children server(TopLevel(data, "netconf-state"));
    const BySession locks = Locks(server);
    BySession edits = Edits(Children(TopLevel(data, "state")).Of("system").Of("candidates"));
    TextTable table({"Session", {"User", 0, true}, "From", {"Since", 1}, "Lock", "Uncommitted edits"});
    server.Of("sessions").ForEach("session", [&](const lyd_node* node) {
        const Children session(node);
        const std::string id = session.Value("session-id");
        table.Add({id + (id == std::to_string(own) ? " *" : ""), session.Value("username"), From(session),
                   session.Time("login-time"), At(locks, id), At(edits, id)});
        edits.erase(id);
    });
    if (table.Empty()) return "The database shows no session to this user.\n";
    // Edits of the shared candidate outlive their session.
    for (const auto& [id, text] : edits) table.Add({id, "ended", "-", "-", "-", text});
    return table.Text(0, width) + "\n* this shell's own; \"request session N end\" ends another.\n";
}

}  // namespace cli
