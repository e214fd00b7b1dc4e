// SPDX-License-Identifier: Apache-2.0
// The database's store, open for reading as long as the database is there: where the configuration is read.

#ifndef MANAGER_STATUS_CONFIGURED_STORE_H
#define MANAGER_STATUS_CONFIGURED_STORE_H

#include <memory>
#include <string>

#include "cdb/rows/reader.h"

namespace manager {

class ConfiguredStore {
public:
    /// Opens the store that is there now. Where it can't be opened that is logged, once for one reason.
    void Open(const std::string& directory);

    /// Null where there is none to read.
    [[nodiscard]] const cdb::StoreReader* Reader() const { return m_reader.get(); }
    /// Why there is none.
    [[nodiscard]] const std::string& Problem() const { return m_problem; }

private:
    std::unique_ptr<cdb::StoreReader> m_reader;
    std::string m_problem = "the database has not named its store";
};

}  // namespace manager

#endif
