// SPDX-License-Identifier: Apache-2.0
#include "agent/data/schema_list.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <tuple>

#include "cdb/schema/libyang_owner.h"

namespace agent {
namespace {

std::string_view TextOf(const char* text) { return text == nullptr ? std::string_view{} : text; }

std::string_view RevisionOf(const lysp_submodule& submodule)
{
    return submodule.revs == nullptr ? std::string_view{} : submodule.revs[0].date;
}

}  // namespace

std::vector<SchemaText> SchemasOf(const ly_ctx* context)
{
    std::vector<SchemaText> all;
    std::uint32_t index = 0;
    while (const lys_module* module = ly_ctx_get_module_iter(context, &index)) {
        if (module->parsed == nullptr) continue;
        all.push_back({module->name, TextOf(module->revision), module->ns, module, nullptr});
        for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(module->parsed->includes); ++i)
            if (const lysp_submodule* part = module->parsed->includes[i].submodule; part != nullptr)
                all.push_back({part->name, RevisionOf(*part), module->ns, module, part});
    }
    std::sort(all.begin(), all.end(), [](const SchemaText& a, const SchemaText& b) {
        return std::tie(a.name, a.revision) < std::tie(b.name, b.revision);
    });
    return all;
}

std::optional<std::string> YangOf(const SchemaText& schema)
{
    char* memory = nullptr;
    ly_out* rawOut = nullptr;
    if (ly_out_new_memory(&memory, 0, &rawOut) != LY_SUCCESS) return std::nullopt;
    const LY_ERR result = schema.submodule == nullptr
                              ? lys_print_module(rawOut, schema.module, LYS_OUT_YANG, 0, 0)
                              : lys_print_submodule(rawOut, schema.submodule, LYS_OUT_YANG, 0, 0);
    ly_out_free(rawOut, nullptr, 0);
    const cdb::Owned<char> text(memory);
    if (result != LY_SUCCESS || memory == nullptr) return std::nullopt;
    return std::string(text.get());
}

}  // namespace agent
