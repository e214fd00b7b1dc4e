// SPDX-License-Identifier: Apache-2.0
// The operations of RFC 8526, which name datastores as RFC 8342 does. Intended is running: nothing is
// generated or left out on the way from one to the other. Operational is running, as all of it is applied,
// with the values that stand for what is not set, and the state.

#include <libyang/libyang.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "agent/data/errors.h"
#include "agent/data/yang_tree.h"
#include "agent/netconf/operations.h"

namespace agent {

void Operations::RefuseDatastore(const RequestPtr& request, std::string_view operation,
                                 std::string_view offered)
{
    request->Refuse(
        MakeError(Layer::kProtocol, cdb::ErrorTag::kInvalidValue,
                  std::string(operation) + " is not offered for that datastore; use " + std::string(offered),
                  {{"bad-element", "datastore"}}));
}

void Operations::GetData(const RequestPtr& request)
{
    const std::string_view name = DatastoreText(ChildNamed(request->Operation(), "datastore"));
    if (name == "operational") return Get(request);
    static constexpr std::array<std::string_view, 3> kConfigured{"running", "candidate", "intended"};
    if (std::find(kConfigured.begin(), kConfigured.end(), name) != kConfigured.end())
        return GetConfig(request);
    RefuseDatastore(request, "get-data", "running, candidate, intended or operational");
}

/// Running is written by commits only.
void Operations::EditData(const RequestPtr& request)
{
    if (DatastoreText(ChildNamed(request->Operation(), "datastore")) != "candidate")
        return RefuseDatastore(request, "edit-data", "the candidate, and commit it");
    EditConfig(request);
}

}  // namespace agent
