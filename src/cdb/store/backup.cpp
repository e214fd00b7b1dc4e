// SPDX-License-Identifier: Apache-2.0
#include "cdb/store/backup.h"

#include <fcntl.h>
#include <lmdb.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>

#include "base/unique_fd.h"
#include "cdb/rows/environment.h"

namespace cdb {
namespace {

namespace fs = std::filesystem;

Error CopyFailed(const fs::path& file, int code)
{
    const std::string what = "the backup to " + file.string() + " failed: ";
    if (code == EEXIST)
        return {.tag = ErrorTag::kDataExists,
                .message = what + "there is such a file; name another one, or remove it"};
    if (code == ENOSPC || code == EDQUOT || code == EFBIG)
        return {.tag = ErrorTag::kResourceDenied,
                .message = what + "no space is left there; free some, or name another place"};
    if (code == EACCES || code == EPERM || code == EROFS)
        return {.tag = ErrorTag::kAccessDenied,
                .message = what + std::strerror(code) + "; name a place where cdbd may write"};
    if (code == ENOENT || code == ENOTDIR)
        return {.tag = ErrorTag::kInvalidValue, .message = what + "there is no such directory"};
    return {.tag = ErrorTag::kOperationFailed, .message = what + mdb_strerror(code)};
}

void SyncDirectoryOf(const fs::path& file)
{
    const base::UniqueFd directory(open(file.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory) fsync(directory.Get());
}

}  // namespace

std::optional<Error> CopyEnvironment(const Environment& environment, const fs::path& file)
{
    if (!file.is_absolute())
        return Error{.tag = ErrorTag::kInvalidValue,
                     .message = "the backup needs an absolute path, not " + file.string()};
    // An early check saves a large copy that link would refuse.
    std::error_code ignored;
    if (fs::exists(fs::symlink_status(file, ignored))) return CopyFailed(file, EEXIST);
    std::string aside = file.string() + ".XXXXXX";
    base::UniqueFd copy(mkostemp(aside.data(), O_CLOEXEC));
    if (!copy) return CopyFailed(file, errno);
    int code = mdb_env_copyfd2(environment.Handle(), copy.Get(), MDB_CP_COMPACT);
    if (code == MDB_SUCCESS && fsync(copy.Get()) != 0) code = errno;
    copy.Close();
    if (code == MDB_SUCCESS && link(aside.c_str(), file.c_str()) != 0) code = errno;
    unlink(aside.c_str());
    if (code != MDB_SUCCESS) return CopyFailed(file, code);
    SyncDirectoryOf(file);
    return std::nullopt;
}

}  // namespace cdb
