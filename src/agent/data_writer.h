// Writes data trees as XML: what a subtree filter selects, in the mode of defaults asked for, the
// entries of each list in ascending byte order of their keys. Used for <get> and <get-config>.

#ifndef AGENT_DATA_WRITER_H
#define AGENT_DATA_WRITER_H

#include <optional>
#include <string>

#include "agent/subtree_filter.h"

struct lyd_node;

namespace agent {

/// RFC 6243: what is written of leaves that have their default.
enum class Defaults {
    kExplicit,  // those that were set
    kTrim,      // none
    kReportAll  // all
};

/// Appends the tree's top-level siblings. No filter: everything.
void WriteData(const lyd_node* first, const std::optional<SubtreeFilter>& filter, Defaults defaults,
               std::string& out);

}  // namespace agent

#endif
