// SPDX-License-Identifier: Apache-2.0
// The database's store, open for reading once the database has named it: the configuration is read there.

#ifndef MANAGER_STATUS_CONFIGURED_STORE_H
#define MANAGER_STATUS_CONFIGURED_STORE_H

#include <memory>
#include <string>

#include "cdb/rows/reader.h"

namespace manager {

class ConfiguredStore {
public:
    /// Opens the store in the directory, in place of the one before. If that fails, it is logged, once for
    /// one reason.
    void Open(const std::string& directory);

    /// Null if there is none to read.
    [[nodiscard]] const cdb::StoreReader* Reader() const { return m_reader.get(); }
    /// Why Reader is null; empty if it is not.
    [[nodiscard]] const std::string& Problem() const { return m_problem; }

private:
    std::unique_ptr<cdb::StoreReader> m_reader;
    std::string m_problem = "the database has not named its store";
};

}  // namespace manager

#endif
