// SPDX-License-Identifier: Apache-2.0
// Any bytes as a file of configuration, JSON or XML. What the pass takes, libyang reads without an
// unknown node; what it refuses is refused at a place in the text.

#include <libyang/libyang.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "cdb/schema/schema.h"
#include "guard/data_file.h"
#include "opaque_nodes.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const auto schema = cdb::Schema::Load(SFLOW_FUZZ_YANG_DIR);
    static const guard::SchemaIndex index(schema->Context());
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto format = guard::FormatOf(text);
    if (!format) return 0;
    if (const auto problem = guard::CheckFile(index, text, *format)) {
        if (problem->offset > text.size() || problem->text.empty()) std::abort();
        return 0;
    }
    lyd_node* tree = nullptr;
    static_cast<void>(lyd_parse_data_mem(schema->Context(), text.c_str(),
                                         *format == guard::Format::kJson ? LYD_JSON : LYD_XML,
                                         LYD_PARSE_ONLY | LYD_PARSE_OPAQ, 0, &tree));
    const bool unknown =
        *format == guard::Format::kXml && !fuzz::UnknownOpaque(tree, nullptr, schema->Context()).empty();
    lyd_free_all(tree);
    if (unknown) std::abort();
    return 0;
}
