// SPDX-License-Identifier: Apache-2.0
// A store's directory: which files are in it, and how an empty store comes into it so that a process killed
// at any moment leaves one that the next can open. Used by store.cpp only.
//
//   data.mdb      the store
//   lock.mdb      LMDB's, writer.lock ours; made when a store is opened
//   store.id      says that a store was made here: without data.mdb it is lost, not empty
//   new/          there while an empty store is being made

#ifndef CDB_STORE_PLACE_H
#define CDB_STORE_PLACE_H

#include <filesystem>
#include <memory>

#include "cdb/store/lock.h"
#include "cdb/store/store.h"

namespace cdb {

inline constexpr const char* kMarkFile = "store.id";

/// Of the store's files but for LMDB's lock file, which readers write.
inline constexpr std::filesystem::perms kDataMode = std::filesystem::perms::owner_read |
                                                    std::filesystem::perms::owner_write |
                                                    std::filesystem::perms::group_read;

struct StorePlace {
    std::unique_ptr<WriterLock> lock;
    bool remade = false;          // it was lost and is an empty one now
    std::size_t recordedMap = 0;  // what the file says of its map's size; 0: it was made just now
};

/// The directory, locked, with a store in it that may be opened. Throws FatalError, having changed nothing.
StorePlace PreparePlace(const std::filesystem::path& directory, const StoreOptions& options);

/// Takes back what PreparePlace has made of a lost store.
void LoseAgain(const std::filesystem::path& directory);

}  // namespace cdb

#endif
