// Checks a store's file before it is used. LMDB trusts its file: a damaged page can end the process
// that reads it. So the whole file is read once, by a child process. Used by store.cpp only.

#ifndef CDB_STORE_CHECK_H
#define CDB_STORE_CHECK_H

#include <filesystem>

namespace cdb {

/// Throws FatalError that says what is wrong with the store in the directory. Changes nothing. To be
/// called while nobody writes and this process has no environment open.
void CheckStore(const std::filesystem::path& directory);

}  // namespace cdb

#endif
