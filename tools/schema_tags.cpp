// SPDX-License-Identifier: Apache-2.0
// Writes the C++ header of the schema's constants: the tag of every element name and the hash of
// every module's namespace. Run by the build: `schema_tags YANG-DIRECTORY OUTPUT`.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <map>
#include <string>

#include "cdb/schema/schema.h"

namespace {

std::string Identifier(std::string name)
{
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c == '-' || c == '.'; }, '_');
    return name;
}

void Write(std::ostream& out, const cdb::SchemaTable& table)
{
    std::map<std::string, std::uint32_t> tags;
    std::map<std::string, std::uint32_t> namespaces;
    for (const auto& node : table.Nodes()) {
        tags.emplace(Identifier(node.name), node.tag);
        namespaces.emplace(Identifier(node.module), node.ns);
    }
    out << "// Generated from the YANG modules by schema_tags.\n\n"
           "#ifndef SWITCH_SCHEMA_H\n#define SWITCH_SCHEMA_H\n\n#include <cstdint>\n\n"
           "namespace switch_schema {\n\n// Tags of element names.\n";
    for (const auto& [name, tag] : tags)
        out << "inline constexpr std::uint32_t tag_" << name << " = " << tag << "U;\n";
    out << "\n// Hashes of the modules' namespaces.\n";
    for (const auto& [name, hash] : namespaces)
        out << "inline constexpr std::int32_t ns_" << name << " = " << hash << ";\n";
    out << "\n}  // namespace switch_schema\n\n#endif\n";
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fputs("usage: schema_tags YANG-DIRECTORY OUTPUT\n", stderr);
        return 1;
    }
    try {
        const auto schema = cdb::Schema::Load(argv[1]);
        std::ofstream out(argv[2]);
        Write(out, schema->Table());
        if (out.flush()) return 0;
        std::fprintf(stderr, "schema_tags: %s can't be written\n", argv[2]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "schema_tags: %s\n", error.what());
    }
    return 1;
}
