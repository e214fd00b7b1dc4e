// SPDX-License-Identifier: Apache-2.0
// A file that a person asks for: there as a whole, or as it was.

#ifndef CLI_DATA_SAVED_FILE_H
#define CLI_DATA_SAVED_FILE_H

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace cli {

/// Is written beside its place, under a name of its own, and takes its place at the end. A file that is there
/// keeps its mode, and its owner where the process may; a new one has what umask(2) leaves of 0666. A
/// symbolic link stays, what it leads to is written.
class SavedFile {
public:
    /// Throws Error for a file that can't be written, and for what is there and is no regular file: a device
    /// or a pipe would be replaced.
    explicit SavedFile(const std::string& path);
    /// Leaves what was there, unless the file has taken its place.
    ~SavedFile();
    SavedFile(const SavedFile&) = delete;
    SavedFile& operator=(const SavedFile&) = delete;

    void Write(std::string_view text);

    /// Puts it in its place, on the disk. Throws Error if what was written is not all there.
    void Place();

private:
    [[noreturn]] void Refuse(const std::string& why) const;

    std::string m_path;    // as it was given
    std::string m_target;  // behind symbolic links
    std::string m_aside;   // empty once it has taken its place
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_file{nullptr, &std::fclose};
};

}  // namespace cli

#endif
