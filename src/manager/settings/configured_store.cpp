// SPDX-License-Identifier: Apache-2.0
#include "manager/settings/configured_store.h"

#include <exception>
#include <utility>

#include "log/log.h"

namespace manager {

void ConfiguredStore::Open(const std::string& directory)
{
    m_directory = directory;
    m_reader.reset();  // a process may open a store only once at a time
    try {
        m_reader = cdb::StoreReader::Open(directory);
        m_problem.clear();
    } catch (const std::exception& error) {
        const std::string before = std::exchange(m_problem, error.what());
        if (before != m_problem)
            slog::Error("the state goes without what only the configuration tells: {}", m_problem);
    }
}

void ConfiguredStore::TryAgain()
{
    if (m_reader == nullptr && !m_directory.empty()) Open(std::string(m_directory));
}

}  // namespace manager
