// SPDX-License-Identifier: Apache-2.0
// The LMDB environment of a store: opening, its databases, reusable read transactions, errors.
// Used by the store's files only; with them the only code that knows LMDB.

#ifndef CDB_ROWS_ENVIRONMENT_H
#define CDB_ROWS_ENVIRONMENT_H

#include <lmdb.h>

#include <cstddef>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cdb/model/error.h"
#include "cdb/model/row.h"
#include "cdb/rows/codec.h"

namespace cdb {

inline constexpr const char* kDataFile = "data.mdb";
inline constexpr const char* kLockFile = "lock.mdb";

inline MDB_val Bytes(std::string_view text)
{
    return {text.size(), const_cast<char*>(text.data())};  // LMDB does not write through it
}
inline std::string_view Text(const MDB_val& value)
{
    return {static_cast<const char*>(value.mv_data), value.mv_size};
}

/// What an LMDB call's failure means to whoever made a change. `what` names the attempt.
Error ToError(const std::filesystem::path& directory, const std::string& what, int code);

class Environment {
public:
    enum class Access { kRead, kWrite, kCheck };  // kCheck: read without taking part in locking
    static constexpr MDB_dbi kNoDatabase = 0;     // the number of LMDB's own

    /// Opens what is there (kWrite makes an empty environment where there is nothing). Throws
    /// FatalError. An environment may be open once in a process.
    Environment(const std::filesystem::path& directory, Access access, std::size_t mapSize);
    ~Environment();
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

    [[nodiscard]] MDB_env* Handle() const { return m_environment; }
    [[nodiscard]] const std::filesystem::path& Directory() const { return m_directory; }

    MDB_dbi meta = 0;
    MDB_dbi rows = 0;
    MDB_dbi history = 0;
    MDB_dbi faults = 0;
    MDB_dbi undo = kNoDatabase;  // a store of an older version that was not opened for writing since has none

    /// Finds the databases and checks the format's mark. Throws FatalError for a file that is no store, or
    /// one of another format.
    void UseDatabases();
    /// The same for one who writes: makes what a store of an older version lacks.
    void UseOrAddDatabases();
    /// Makes them, in an environment made just now. Throws FatalError.
    void MakeDatabases();

    /// The payload under the key of `meta`; nullopt: none. Throws FatalError where it is unreadable.
    [[nodiscard]] std::optional<std::string> Meta(MDB_txn* transaction, std::string_view key) const;

    [[noreturn]] void Fail(const std::string& what, int code) const;

    /// What one pass over rows works with; kept for the next pass.
    struct Pass {
        MDB_cursor* cursor = nullptr;
        std::string prefix;
        Row row;
        std::vector<std::string> keys;
        std::vector<std::string_view> keyViews;
    };

    /// A read transaction, begun by renewing one that has been used before. Of one thread at a time.
    struct Reading {
        MDB_txn* transaction = nullptr;
        std::vector<std::unique_ptr<Pass>> idlePasses;
        ~Reading();
    };
    /// Both from any thread.
    [[nodiscard]] std::unique_ptr<Reading> BeginReading();
    void EndReading(std::unique_ptr<Reading> reading);

    /// A pass of this reading, over the rows. Goes back into the reading's idlePasses when it is done.
    [[nodiscard]] std::unique_ptr<Pass> TakePass(Reading& reading) const;

    /// The row of a record into the pass's. Throws FatalError for one that can't be read.
    void ReadRow(const MDB_val& key, const MDB_val& value, Pass& pass) const;

private:
    /// Before anything is read by a process that writes.
    int TakeOverFromLastWriter();

    std::filesystem::path m_directory;
    MDB_env* m_environment = nullptr;
    std::mutex m_idleMutex;
    std::vector<std::unique_ptr<Reading>> m_idle;  // before the environment is closed they are gone
};

/// The schema table in the store. Throws FatalError where it can't be read.
SchemaTable StoredSchema(const Environment& environment, MDB_txn* transaction);

}  // namespace cdb

#endif
