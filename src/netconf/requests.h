// SPDX-License-Identifier: Apache-2.0
// The operations of an <rpc> as text, for a client. Arguments that are XML are inserted as they are,
// all others are escaped.

#ifndef NETCONF_REQUESTS_H
#define NETCONF_REQUESTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace netconf {

struct EditOptions {
    std::string defaultOperation;  // merge, replace, none; empty: the server's default, merge
    /// test-then-set, set, test-only; empty: the server's default, test-then-set, which refuses an edit
    /// that would leave the candidate invalid.
    std::string testOption;
    std::string errorOption;  // stop-on-error, continue-on-error, rollback-on-error
};

/// `filter`: the elements of a subtree filter; nullopt selects everything, an empty one nothing.
std::string Get(std::optional<std::string_view> filter = {});
/// `withDefaults`: a mode of RFC 6243, such as report-all-tagged; empty: the server's own.
std::string GetConfig(std::string_view source, std::optional<std::string_view> filter = {},
                      std::string_view withDefaults = {});

/// Reads, of the outermost lists, only the entries in which the candidate may differ from running.
std::string GetTouched(std::string_view source);

/// `config`: the XML elements inside <config>. Target is the candidate.
std::string EditConfig(std::string_view config, const EditOptions& options = {});

std::string Commit(std::string_view comment = {});

struct Confirmed {
    std::string timeout{};    // seconds; empty: the standard's 600
    std::string persist{};    // the token of a commit that outlives its session; empty: it does not
    std::string persistId{};  // the token of the one that is extended; empty: it has none, or there is none
    std::string comment{};
};
/// A confirmed commit (RFC 6241, section 8.4).
std::string CommitConfirmed(const Confirmed& options);
/// Confirms it without a commit. `persistId`: its token, if it has one.
std::string ConfirmCommit(std::string_view persistId = {});
std::string CancelCommit(std::string_view persistId = {});
std::string Validate(std::string_view source = "candidate");
std::string DiscardChanges();
std::string Lock(std::string_view target);
std::string Unlock(std::string_view target);
std::string CloseSession();
std::string KillSession(std::uint32_t id);

/// `role`: "active" or "standby".
std::string HaTransition(std::string_view role);
std::string SflowResync();
std::string SflowClearStatistics();
std::string SflowTestCollector(std::string_view collector);
/// The last lines of the log: of the process of that name, or of all if it is empty.
std::string GetLog(unsigned lines, std::string_view process);
std::string SflowTopTalkers(std::string_view interface);
/// `file`: an absolute path on the switch.
std::string Backup(std::string_view file);
/// `startTime`: from when on events are replayed (RFC 5277); empty: none.
std::string CreateSubscription(std::string_view startTime = {});

/// A configuration of the past, for RollBack and CompareWith: "3" is that of 3 commits ago, a name that of a
/// checkpoint. `isCommit`: the one after the commit of that number.
struct Moment {
    std::string text;
    bool isCommit = false;
};
std::string RollBack(const Moment& moment);
/// The answer's output has "before" and "after".
std::string CompareWith(const Moment& moment);
/// Likewise. `commit`: its number.
std::string CommitChanges(std::string_view commit);
std::string SetCheckpoint(std::string_view name, bool replace = false);
std::string DeleteCheckpoint(std::string_view name);

std::string OpenPrivateCandidate();
std::string ClosePrivateCandidate();
/// `takeRunning`: decides conflicts for running, instead of being refused.
std::string UpdateCandidate(bool takeRunning = false);

}  // namespace netconf

#endif
