// SPDX-License-Identifier: Apache-2.0
#include "cli/edit.h"

#include <libyang/libyang.h>

#include <cstddef>
#include <string_view>

#include "cli/data.h"
#include "cli/error.h"
#include "netconf/xml.h"

namespace cli {
namespace {

constexpr std::string_view kDelete =
    " xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" nc:operation=\"delete\"";
constexpr std::string_view kReplace =
    " xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" nc:operation=\"replace\"";

void AppendKeys(const Step& step, std::string& xml)
{
    const lysc_node* key = lysc_node_child(step.schema);
    for (const std::string& value : step.keys) {
        const std::string name = key->name;
        xml += "<" + name + ">" + netconf::Escaped(value) + "</" + name + ">";
        key = key->next;
    }
}

/// The elements of the place inside each other; `attributes` are the last one's.
std::string Nested(const Place& place, std::string_view attributes)
{
    std::string open;
    std::string close;
    const lys_module* module = nullptr;
    for (std::size_t i = 0; i < place.steps.size(); ++i) {
        const Step& step = place.steps[i];
        open += "<" + std::string(step.schema->name);
        if (step.schema->module != module) open += " xmlns=\"" + std::string(step.schema->module->ns) + "\"";
        module = step.schema->module;
        if (i + 1 == place.steps.size()) open += attributes;
        open += ">";
        AppendKeys(step, open);
        close = "</" + std::string(step.schema->name) + ">" + close;
    }
    return open + (place.value ? netconf::Escaped(*place.value) : "") + close;
}

void MarkReplaced(const ly_ctx* yang, lyd_node* node)
{
    const lys_module* netconf = ly_ctx_get_module_implemented(yang, "ietf-netconf");
    if (!netconf || lyd_new_meta(yang, node, netconf, "operation", "replace", 0, nullptr) != LY_SUCCESS)
        throw Error("the edit can't be marked as a replacement: " + LastMessage(yang));
}

}  // namespace

std::string SetXml(const Place& place) { return Nested(place, {}); }

std::string DeleteXml(const Place& place) { return Nested(place, kDelete); }

std::string FilterXml(const Place& place) { return Nested(place, {}); }

std::string ReplaceXml(const ly_ctx* yang, lyd_node* tree)
{
    const lysc_node* root = RootContainer(yang);
    bool hasRoot = false;
    for (lyd_node* node = tree; node; node = node->next) {
        hasRoot = hasRoot || node->schema == root;
        MarkReplaced(yang, node);
    }
    std::string xml = tree ? ToCompactXml(tree) : "";
    if (!hasRoot) xml += Nested(Place{{{root, {}}}, {}}, kReplace);
    return xml;
}

}  // namespace cli
