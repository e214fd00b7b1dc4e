// SPDX-License-Identifier: Apache-2.0
// The LMDB environment of a store: opening, its databases, reusable read transactions, errors. Used by
// cdb/rows and cdb/store only; no other code knows LMDB.

#ifndef CDB_ROWS_ENVIRONMENT_H
#define CDB_ROWS_ENVIRONMENT_H

#include <lmdb.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
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

/// The error of a failed LMDB write. `what` names the attempt.
Error ToError(const std::filesystem::path& directory, const std::string& what, int code);

class Environment {
public:
    enum class Access { kRead, kWrite, kCheck };  // kCheck: reads without locking
    static constexpr MDB_dbi kNoDatabase = 0;     // LMDB's own number for its list of free pages

    /// Opens the environment; kWrite makes an empty one if there is none. `mapSize` in bytes; 0: as the file
    /// says. Throws FatalError. A process may have an environment open only once.
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
    // A store of an older version has none of these until it is opened for writing:
    MDB_dbi undo = kNoDatabase;
    MDB_dbi checkpoints = kNoDatabase;

    /// Opens the databases and checks the format's mark. Throws FatalError if the file is no store, or has
    /// another format.
    void UseDatabases();
    /// The same for writing: also makes the databases that a store of an older version lacks.
    void UseOrAddDatabases();
    /// Makes the databases in a new environment. Throws FatalError.
    void MakeDatabases();

    /// The payload under the key of `meta`; nullopt if there is none. Throws FatalError if it can't be read.
    [[nodiscard]] std::optional<std::string> Meta(MDB_txn* transaction, std::string_view key) const;

    [[noreturn]] void Fail(const std::string& what, int code) const;

    /// The cursor and scratch memory of one pass over rows; kept for the next pass.
    struct Pass {
        MDB_cursor* cursor = nullptr;
        std::string prefix;
        Row row;
        std::vector<std::string> keys;
        std::vector<std::string_view> keyViews;
    };

    /// A read transaction, renewed from a used one if there is one. For one thread at a time.
    struct Reading {
        MDB_txn* transaction = nullptr;
        std::vector<std::unique_ptr<Pass>> idlePasses;
        ~Reading();
    };
    /// Keeps a reading that has ended for the next one.
    struct EndReading {
        Environment* environment = nullptr;
        void operator()(Reading* reading) const;
    };
    using ReadingPtr = std::unique_ptr<Reading, EndReading>;
    /// Any thread may begin and end one. Throws FatalError. The environment must outlive the reading.
    [[nodiscard]] ReadingPtr BeginReading();

    /// A pass over the rows. The caller puts it back into the reading's idlePasses. Throws FatalError.
    [[nodiscard]] std::unique_ptr<Pass> TakePass(Reading& reading) const;

    /// Reads a record's row into pass.row. Throws FatalError if it can't be read.
    void ReadRow(const MDB_val& key, const MDB_val& value, Pass& pass) const;

private:
    /// The databases that stores of older versions lack, by name.
    std::array<std::pair<const char*, MDB_dbi*>, 2> Added();

    /// Repairs the lock file after a killed writer; returns LMDB's code.
    int TakeOverFromLastWriter();

    std::filesystem::path m_directory;
    MDB_env* m_environment = nullptr;
    std::mutex m_idleMutex;
    std::vector<std::unique_ptr<Reading>> m_idle;  // destroyed before the environment is closed
};

/// The schema table in the store. Throws FatalError if it can't be read.
SchemaTable StoredSchema(const Environment& environment, MDB_txn* transaction);

}  // namespace cdb

#endif
