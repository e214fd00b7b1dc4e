// SPDX-License-Identifier: Apache-2.0
// Checks a store's file before it is used. LMDB trusts its file: a damaged page can end the process that
// reads it. So a child process reads the file once. Used by the store's writer only.

#ifndef CDB_STORE_CHECK_H
#define CDB_STORE_CHECK_H

#include <filesystem>

#include "cdb/store/store_options.h"

namespace cdb {

enum class CheckDepth {
    kStart,  // all except the history's large values, which may be long
    kEverything
};

/// Throws FatalError that says what is wrong with the store in the directory. Changes nothing. Must be called
/// while no process writes to the store and this process has no environment open.
StoreFigures CheckStore(const std::filesystem::path& directory, CheckDepth depth);

}  // namespace cdb

#endif
