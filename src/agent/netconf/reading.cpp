// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/reading.h"

#include <libyang/libyang.h>

#include <charconv>
#include <span>
#include <string_view>
#include <utility>

#include "agent/data/errors.h"
#include "agent/data/yang_tree.h"
#include "netconf/names.h"

namespace agent {
namespace {

/// Nullopt: none.
using ReadError = std::optional<netconf::RpcError>;

netconf::RpcError BadValue(std::string message, const char* element)
{
    return MakeError(Layer::kProtocol, cdb::ErrorTag::kInvalidValue, std::move(message),
                     {{"bad-element", element}});
}

ReadError ReadDefaults(const lyd_node* operation, Reading& reading)
{
    const std::string_view mode = ChildText(operation, "with-defaults");
    Defaults& defaults = reading.options.defaults;
    if (mode == "trim")
        defaults = Defaults::kTrim;
    else if (mode == "report-all")
        defaults = Defaults::kReportAll;
    else if (mode == "report-all-tagged")
        defaults = Defaults::kTagged;
    else if (!mode.empty() && mode != "explicit")
        return BadValue("with-defaults \"" + std::string(mode) +
                            "\" is not offered; use explicit, trim, report-all or report-all-tagged",
                        "with-defaults");
    if (defaults == Defaults::kTagged) reading.attributes.append(kTagDeclaration);
    return std::nullopt;
}

/// The filters by origin: <origin-filter> or <negated-origin-filter>, of which libyang takes one kind only.
/// Configuration has two origins here, intended and default.
void ReadOrigins(const lyd_node* operation, Origins& origins)
{
    bool isFiltered = false;
    bool isNegated = false;
    bool intended = false;
    bool byDefault = false;
    for (const lyd_node* child = lyd_child(operation); child != nullptr; child = child->next) {
        const std::string_view name = child->schema->name;
        if (name != "origin-filter" && name != "negated-origin-filter") continue;
        const std::string_view origin = lyd_get_value(child);
        isFiltered = true;
        isNegated = name != "origin-filter";
        intended |= origin == "ietf-origin:intended";
        byDefault |= origin == "ietf-origin:default";
    }
    if (!isFiltered) return;
    origins.intended = intended != isNegated;
    origins.byDefault = byDefault != isNegated;
}

/// In operational all values in use are given, defaults among them (RFC 8342, section 5.3).
ReadError ReadOperational(const lyd_node* operation, Reading& reading)
{
    if (ChildNamed(operation, "with-defaults") != nullptr)
        return BadValue(
            "with-defaults is not offered for operational, which gives every value in use; leave it out",
            "with-defaults");
    reading.options.defaults = Defaults::kReportAll;
    reading.missing = Missing::kInUse;
    Origins& origins = reading.options.origins;
    ReadOrigins(operation, origins);
    origins.tagged = ChildNamed(operation, "with-origin") != nullptr;
    if (origins.tagged) reading.attributes.append(kOriginDeclaration);
    reading.configuration = origins.intended || origins.byDefault;
    return std::nullopt;
}

/// The parameters of <get-data> (RFC 8526, section 3.1.1). libyang has checked the values.
ReadError ReadDataParameters(const lyd_node* operation, Reading& reading)
{
    reading.attributes.append(" xmlns=\"").append(netconf::kNmdaNamespace).append("\"");
    const std::string_view datastore = DatastoreText(ChildNamed(operation, "datastore"));
    reading.ofCandidate = datastore == "candidate";
    ReadError refusal =
        datastore == "operational" ? ReadOperational(operation, reading) : ReadDefaults(operation, reading);
    if (refusal) return refusal;
    const std::string_view kind = ChildText(operation, "config-filter");
    reading.configuration &= kind != "false";
    reading.state = kind != "true";
    const std::string_view depth = ChildText(operation, "max-depth");
    if (depth != "unbounded")
        std::from_chars(depth.data(), depth.data() + depth.size(), reading.options.levels);
    return std::nullopt;
}

}  // namespace

ReadingOrError MakeReading(const DataSchema& schema, const Request& request,
                           const std::shared_ptr<const AccessGrant>& access, const FilterLimits& limits)
{
    const lyd_node* operation = request.Operation();
    const bool isGetData = std::string_view(operation->schema->name) == "get-data";
    const auto reading = std::make_shared<Reading>();
    reading->ofCandidate = NameInChild(operation, "source") == "candidate";
    if (ReadError refusal =
            isGetData ? ReadDataParameters(operation, *reading) : ReadDefaults(operation, *reading))
        return base::Unexpected(*std::move(refusal));
    if (!access->ReadsAll())
        reading->options.access = [access](const lysc_node* node, std::span<const std::string> keys) {
            return access->Reading(node, keys) != Visibility::kHidden;
        };
    if (!request.Filter()) return reading;
    auto plan = FilterPlan::Make(schema, *request.Filter(), limits);
    if (!plan)
        return base::Unexpected(MakeError(Layer::kProtocol, plan.error().tag, plan.error().message,
                                          {{"bad-element", isGetData ? "subtree-filter" : "filter"}}));
    reading->filter = *std::move(plan);
    reading->options.filter = &*reading->filter;
    return reading;
}

}  // namespace agent
