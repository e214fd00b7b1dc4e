// SPDX-License-Identifier: Apache-2.0
// What the answer to a commit says, for people and for programs.

#ifndef CLI_SCREENS_COMMIT_REPORT_H
#define CLI_SCREENS_COMMIT_REPORT_H

#include <string>

namespace netconf {
struct Reply;
}

namespace cli {

/// "commit 38: 1 change, acknowledged by sflow-app in 0.8 ms". Empty if nothing was committed.
std::string CommitReport(const netconf::Reply& reply);

/// The same as a JSON object: "commit" (null if nothing was committed), "changes", "acknowledged" with
/// "process" and "milliseconds" of each, and the texts of "warnings".
std::string CommitReportJson(const netconf::Reply& reply);

/// That the commit has taken what other sessions had edited, too; empty if it has not.
std::string OthersText(const netconf::Reply& reply);

}  // namespace cli

#endif
