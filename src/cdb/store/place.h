// SPDX-License-Identifier: Apache-2.0
// A store's directory: its files, and how an empty store is made in it so that a process killed at any moment
// leaves a directory that the next one can open. Used by store.cpp only.
//
//   data.mdb      the store
//   lock.mdb      LMDB's; made when a store is opened
//   writer.lock   ours; made when a store is opened
//   store.id      says that a store was made here: without data.mdb it is lost, not empty
//   new/          exists while an empty store is being made

#ifndef CDB_STORE_PLACE_H
#define CDB_STORE_PLACE_H

#include <filesystem>
#include <memory>

#include "base/unique_fd.h"
#include "cdb/store/store_options.h"

namespace cdb {

inline constexpr const char* kMarkFile = "store.id";
inline constexpr const char* kWriterLockFile = "writer.lock";

/// The mode of the store's files except LMDB's lock file, which readers write.
inline constexpr std::filesystem::perms kDataMode = std::filesystem::perms::owner_read |
                                                    std::filesystem::perms::owner_write |
                                                    std::filesystem::perms::group_read;

/// The lock on the file that names the process which writes a store. Held while the object lives; the kernel
/// releases it when the process dies.
class WriterLock {
public:
    /// Throws FatalError that names the process which holds it, or says why the file can't be used.
    explicit WriterLock(const std::filesystem::path& directory);

private:
    base::UniqueFd m_file;
};

struct StorePlace {
    std::unique_ptr<WriterLock> lock;
    bool remade = false;          // it was lost; an empty one was made
    std::size_t recordedMap = 0;  // the map's size according to the file, in bytes; 0: it was made just now
};

/// Locks the directory and makes sure that it has a sound store. Throws FatalError, having changed nothing.
StorePlace PreparePlace(const std::filesystem::path& directory, const StoreOptions& options);

/// Removes the empty store that PreparePlace has made in place of a lost one.
void LoseAgain(const std::filesystem::path& directory);

}  // namespace cdb

#endif
