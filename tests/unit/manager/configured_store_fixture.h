// SPDX-License-Identifier: Apache-2.0
// A store in a directory of its own, with the modules' schema, for what reads the configuration from it.

#ifndef TESTS_UNIT_MANAGER_CONFIGURED_STORE_FIXTURE_H
#define TESTS_UNIT_MANAGER_CONFIGURED_STORE_FIXTURE_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "cdb/schema/schema.h"
#include "cdb/store/store.h"

namespace manager {

/// An environment is open once in a process: the writer is closed before the reader opens the store.
class ConfiguredStoreFixture : public testing::Test {
protected:
    ConfiguredStoreFixture()
    {
        std::string name = (std::filesystem::temp_directory_path() / "configured-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) std::abort();
        m_dir = name;
    }
    ~ConfiguredStoreFixture() override
    {
        m_reader.reset();
        std::filesystem::remove_all(m_dir);
    }

    struct Entry {
        const char* path;
        std::vector<std::string> keys;
        cdb::Row row = {};
        bool gone = false;  // it is taken away
    };
    static constexpr const char* kCollector = "/config/oam/sflow/collector";
    static constexpr const char* kInterface = "/config/oam/sflow/interface";
    static constexpr const char* kFlow = "/config/oam/sflow/interface/flow-sampling-collector";
    static constexpr const char* kCounter = "/config/oam/sflow/interface/counter-sampling-collector";
    static constexpr const char* kOwn = "/config/oam/sflow-manager";
    static constexpr const char* kOwnEntry = "/config/oam/sflow-manager/collector";

    /// Writes them, and opens the store for reading.
    const cdb::StoreReader& Store(const std::vector<Entry>& entries)
    {
        m_reader.reset();
        Write(entries);
        return Reopen();
    }
    const cdb::StoreReader& Reopen() { return *(m_reader = cdb::StoreReader::Open(m_dir)); }

    std::filesystem::path m_dir;
    std::unique_ptr<cdb::StoreReader> m_reader;

private:
    static void WriteOne(const cdb::RowKey& key, const Entry& entry, cdb::Store::Transaction& transaction)
    {
        if (entry.gone)
            transaction.Erase(key);
        else
            transaction.Put(key, entry.row);
    }
    void Write(const std::vector<Entry>& entries) const
    {
        static const auto schema = cdb::Schema::Load(SFLOW_TEST_YANG_DIR);
        const auto store = cdb::Store::Open(m_dir);
        store->SetSchema(schema->Table());
        auto transaction = store->Begin();
        for (const Entry& entry : entries)
            WriteOne({schema->Table().Find(entry.path), entry.keys}, entry, transaction);
        cdb::HistoryEntry history;
        history.commit = store->LastCommit() + 1;
        transaction.Append(history);
        EXPECT_FALSE(transaction.Commit());
    }
};

}  // namespace manager

#endif
