// SPDX-License-Identifier: Apache-2.0
// The database's store, open for reading once the database has named it. A process may open a store only once
// at a time, so the manager has one of these: the own settings are read from it, and what the state tells of
// the configuration.

#ifndef MANAGER_SETTINGS_CONFIGURED_STORE_H
#define MANAGER_SETTINGS_CONFIGURED_STORE_H

#include <memory>
#include <string>

#include "cdb/rows/reader.h"

namespace manager {

class ConfiguredStore {
public:
    /// Opens the store in the directory, in place of the one before. If that fails, it is logged, once for
    /// one reason.
    void Open(const std::string& directory);
    /// Opens the one that was named last again, if it could not be opened; if none was named, does nothing.
    void TryAgain();

    /// Null if there is none to read.
    [[nodiscard]] const cdb::StoreReader* Reader() const { return m_reader.get(); }
    /// Why Reader is null; empty if it is not.
    [[nodiscard]] const std::string& Problem() const { return m_problem; }

private:
    std::string m_directory;
    std::unique_ptr<cdb::StoreReader> m_reader;
    std::string m_problem = "the database has not named its store";
};

}  // namespace manager

#endif
