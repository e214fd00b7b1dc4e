// SPDX-License-Identifier: Apache-2.0
#include <ostream>

#include "cli/config_file.h"
#include "cli/config_text.h"
#include "cli/data.h"
#include "cli/edit.h"
#include "cli/handlers.h"
#include "cli/output.h"
#include "cli/request.h"
#include "cli/schema_words.h"
#include "netconf/requests.h"

namespace cli {
namespace {

/// Edits the candidate, all or nothing. Only validate and commit check the whole: until then it may lack what
/// a later command adds.
void Edit(Call& call, const std::string& config)
{
    Request(call, netconf::EditConfig(config, {"merge", "set", "rollback-on-error"}));
}

}  // namespace

void Set(Call& call) { Edit(call, SetXml(PlaceToSet(call.yang, call.arguments.words))); }

void Delete(Call& call) { Edit(call, DeleteXml(PlaceToDelete(call.yang, call.arguments.words))); }

void LoadMerge(Call& call)
{
    const Tree tree = ReadConfigFile(call.yang, call.arguments.text);
    Edit(call, tree ? ToCompactXml(tree.get()) : "");
}

void LoadReplace(Call& call)
{
    const Tree tree = ReadConfigFile(call.yang, call.arguments.text);
    Edit(call, ReplaceXml(call.yang, tree.get()));
}

void ShowConfiguration(Call& call)
{
    const Place place = PlaceToShow(call.yang, call.arguments.words);
    const bool all = place.steps.empty();
    const std::string filter = FilterXml(place);
    const Tree tree =
        RequestData(call, all ? netconf::GetConfig("candidate") : netconf::GetConfig("candidate", filter));
    call.output.Show(tree.get(), [&](const lyd_node* data) {
        return all ? ToBlocks(data) : ToBlocks(NodesAt(data, place));
    });
}

void Compare(Call& call)
{
    const Tree running = RequestData(call, netconf::GetTouched("running"));
    const Tree candidate = RequestData(call, netconf::GetTouched("candidate"));
    call.out << Differences(running.get(), candidate.get());
}

}  // namespace cli
