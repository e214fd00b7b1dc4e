// SPDX-License-Identifier: Apache-2.0
// The modules and submodules whose text a client can get: what <get-schema> gives and what
// /netconf-state/schemas lists are one thing (RFC 6022).

#ifndef AGENT_DATA_SCHEMA_LIST_H
#define AGENT_DATA_SCHEMA_LIST_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct ly_ctx;
struct lys_module;
struct lysp_submodule;

namespace agent {

/// Of the schema's context, which must outlive it.
struct SchemaText {
    std::string_view name;
    std::string_view revision;  // empty if it has none
    std::string_view ns;        // of a submodule: its module's
    const lys_module* module = nullptr;
    const lysp_submodule* submodule = nullptr;  // null for a module
};

/// All of them, imported modules too, in ascending order of names and revisions.
std::vector<SchemaText> SchemasOf(const ly_ctx* context);

/// As YANG; nullopt if libyang can't write it.
std::optional<std::string> YangOf(const SchemaText& schema);

}  // namespace agent

#endif
