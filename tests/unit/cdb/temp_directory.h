// SPDX-License-Identifier: Apache-2.0
// A directory of a test's own, removed with it.

#ifndef TESTS_UNIT_CDB_TEMP_DIRECTORY_H
#define TESTS_UNIT_CDB_TEMP_DIRECTORY_H

#include <stdlib.h>

#include <filesystem>
#include <string>

class TempDirectory {
public:
    TempDirectory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "cdb-read-XXXXXX").string();
        m_path = ::mkdtemp(pattern.data());
    }
    ~TempDirectory()
    {
        std::error_code ignored;  // a test may have left things that only it could remove
        std::filesystem::remove_all(m_path, ignored);
    }
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    [[nodiscard]] const std::filesystem::path& Path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

#endif
