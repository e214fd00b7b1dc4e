// SPDX-License-Identifier: Apache-2.0
// Writes data as XML: what a subtree filter selects, in the mode of defaults asked for, nodes in schema
// order and the entries of each list in the order that the source gives. Used for <get> and <get-config>.

#ifndef AGENT_DATA_DATA_WRITER_H
#define AGENT_DATA_DATA_WRITER_H

#include <string>

#include "agent/data/data_schema.h"
#include "agent/data/data_source.h"
#include "agent/data/filter_plan.h"
#include "agent/data/read_access.h"

namespace agent {

/// RFC 6243: what is written of leaves that have their default.
enum class Defaults {
    kExplicit,  // those that were set
    kTrim,      // none
    kReportAll  // all
};

struct WriteOptions {
    Defaults defaults = Defaults::kExplicit;
    const FilterPlan* filter = nullptr;  // null: everything
    ReadAccess access{};
};

/// Appends the top-level nodes of the source.
void WriteData(const DataSchema& schema, DataSource& source, const WriteOptions& options, std::string& out);

}  // namespace agent

#endif
