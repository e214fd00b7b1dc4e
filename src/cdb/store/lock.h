// SPDX-License-Identifier: Apache-2.0
// The lock file that names the process which writes a store. Used by store.cpp only.

#ifndef CDB_STORE_LOCK_H
#define CDB_STORE_LOCK_H

#include <filesystem>

#include "base/unique_fd.h"

namespace cdb {

inline constexpr const char* kWriterLockFile = "writer.lock";

/// Held while the object lives; the kernel releases it when the process dies.
class WriterLock {
public:
    /// Throws FatalError that names the process which holds it, or says why the file can't be used.
    explicit WriterLock(const std::filesystem::path& directory);

private:
    base::UniqueFd m_file;
};

}  // namespace cdb

#endif
