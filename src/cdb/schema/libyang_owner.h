// SPDX-License-Identifier: Apache-2.0
// The owners of what libyang gives to its caller: contexts, trees, sets, inputs and texts. Used by all
// folders that call libyang.

#ifndef CDB_SCHEMA_LIBYANG_OWNER_H
#define CDB_SCHEMA_LIBYANG_OWNER_H

#include <libyang/libyang.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace cdb {

struct FreeLibyang {
    void operator()(ly_ctx* context) const { ly_ctx_destroy(context); }
    void operator()(ly_set* set) const { ly_set_free(set, nullptr); }
    void operator()(ly_in* input) const { ly_in_free(input, 0); }
    void operator()(char* text) const { std::free(text); }
    void operator()(lyd_node* node) const
    {
        if (node->parent != nullptr)
            lyd_free_tree(node);
        else
            lyd_free_all(node);
    }
};
template <typename Object>
using Owned = std::unique_ptr<Object, FreeLibyang>;

/// Owns a node with everything below it and, for a top-level node, all its siblings too.
using TreePtr = Owned<lyd_node>;

/// A copy of the text, which is freed; empty if it is null.
inline std::string TakeText(char* text)
{
    const Owned<char> owned(text);
    return text != nullptr ? text : "";
}

}  // namespace cdb

#endif
