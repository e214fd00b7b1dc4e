// SPDX-License-Identifier: Apache-2.0
// What a <get>, <get-config> or <get-data> asks for, resolved against the schema. Reads nothing itself.

#ifndef AGENT_NETCONF_READING_H
#define AGENT_NETCONF_READING_H

#include <memory>
#include <optional>
#include <string>

#include "agent/access/access.h"
#include "agent/data/data_schema.h"
#include "agent/data/data_source.h"
#include "agent/data/data_writer.h"
#include "agent/data/filter_plan.h"
#include "agent/netconf/request.h"
#include "base/expected.h"
#include "netconf/rpc_error.h"

namespace agent {

struct Reading {
    std::optional<FilterPlan> filter;
    WriteOptions options;       // its filter is the one above
    std::string attributes;     // of <data>, each with a blank before it
    bool ofCandidate = false;   // else of running
    bool configuration = true;  // is asked for
    bool state = true;          // is asked for, where the operation gives state
    Missing missing = Missing::kDefaults;
};

using ReadingPtr = std::shared_ptr<const Reading>;
using ReadingOrError = base::expected<ReadingPtr, netconf::RpcError>;

/// `access`: of the request's user. Any thread may call it.
ReadingOrError MakeReading(const DataSchema& schema, const Request& request,
                           const std::shared_ptr<const AccessGrant>& access, const FilterLimits& limits);

}  // namespace agent

#endif
