// SPDX-License-Identifier: Apache-2.0
// The statements of yang/switch-extensions.yang, where compiled nodes have them. Used by the derivation of
// the schema table and by the shell.

#ifndef CDB_SCHEMA_EXTENSIONS_H
#define CDB_SCHEMA_EXTENSIONS_H

#include <libyang/libyang.h>

#include <string_view>

namespace cdb {

/// The argument of the statement of that name; null if there is none.
inline const char* Statement(const lysc_ext_instance* instances, std::string_view name)
{
    LY_ARRAY_COUNT_TYPE i = 0;
    LY_ARRAY_FOR(instances, i)
    {
        const lysc_ext& definition = *instances[i].def;
        if (definition.name == name && std::string_view(definition.module->name) == "switch-extensions")
            return instances[i].argument;
    }
    return nullptr;
}

}  // namespace cdb

#endif
