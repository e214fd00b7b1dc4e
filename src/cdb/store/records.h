// SPDX-License-Identifier: Apache-2.0
// Reads the records of a store and says what is wrong with them. Runs in the child process of check.cpp,
// since a damaged file may end it.

#ifndef CDB_STORE_RECORDS_H
#define CDB_STORE_RECORDS_H

#include <filesystem>
#include <stdexcept>

#include "cdb/store/store_options.h"

namespace cdb {

enum class CheckDepth {
    kStart,  // all except the history's large values, which may be long
    kEverything
};

class DamagedRecord : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Throws DamagedRecord or FatalError.
StoreFigures ReadRecords(const std::filesystem::path& directory, CheckDepth depth);

}  // namespace cdb

#endif
