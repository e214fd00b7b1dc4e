// SPDX-License-Identifier: Apache-2.0
#include "cli/data/place.h"

#include <libyang/libyang.h>

#include <string_view>

#include "cli/data/error.h"
#include "cli/data/words.h"

namespace cli {
namespace {

constexpr const char* kRootModule = "switch-config";
constexpr const char* kRootName = "config";

bool IsRoot(const lysc_node* node)
{
    return !node->parent && std::string_view(node->name) == kRootName &&
           std::string_view(node->module->name) == kRootModule;
}

}  // namespace

const lysc_node* RootContainer(const ly_ctx* yang)
{
    const lys_module* module = ly_ctx_get_module_implemented(yang, kRootModule);
    const lysc_node* root =
        module ? lys_find_child(nullptr, module, kRootName, 0, LYS_CONTAINER, 0) : nullptr;
    if (!root)
        throw Error(std::string("the YANG modules have no container ") + kRootName + " in " + kRootModule);
    return root;
}

std::vector<std::string> WordListOf(const Place& place)
{
    std::vector<std::string> words;
    for (const Step& step : place.steps) {
        if (IsRoot(step.schema)) continue;
        words.emplace_back(step.schema->name);
        words.insert(words.end(), step.keys.begin(), step.keys.end());
    }
    return words;
}

std::string WordsOf(const Place& place)
{
    std::string text;
    for (const Step& step : place.steps) {
        if (IsRoot(step.schema)) continue;
        text += (text.empty() ? "" : " ") + std::string(step.schema->name);
        for (const std::string& key : step.keys) text += " " + Quoted(key);
    }
    return text;
}

}  // namespace cli
