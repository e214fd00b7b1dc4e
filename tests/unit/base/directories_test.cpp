// SPDX-License-Identifier: Apache-2.0
// Where programs find the YANG modules.

#include "base/directories.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "cdb/temp_directory.h"

namespace {

namespace fs = std::filesystem;

/// A directory of YANG modules, by its sign.
fs::path Modules(const fs::path& directory)
{
    fs::create_directories(directory);
    std::ofstream(directory / "switch-config.yang");
    return directory;
}

TEST(YangDirectory, IsTheOneThatIsNamedWhateverIsThere)
{
    const TempDirectory place;
    Modules(place.Path() / "share/sflow-switch/yang");
    EXPECT_EQ(base::YangDirectory(place.Path() / "bin/cdbd", "/y"), "/y");
}

TEST(YangDirectory, IsThatOfTheInstalledTreeWhereverItIs)
{
    const TempDirectory place;
    const fs::path program = place.Path() / "opt/any where/bin/cdbd";
    EXPECT_EQ(base::YangDirectory(program, std::nullopt), SFLOW_TEST_INSTALLED_YANG_DIR);
    Modules(place.Path() / "opt/yang");  // beside a prefix, so after its own
    const fs::path installed = Modules(place.Path() / "opt/any where/share/sflow-switch/yang");
    EXPECT_EQ(base::YangDirectory(program, std::nullopt), installed);
}

TEST(YangDirectory, IsThatOfTheSourceTreeBesideItsBuild)
{
    const fs::path yang = SFLOW_TEST_YANG_DIR;
    EXPECT_EQ(base::YangDirectory(yang.parent_path() / "build-any/bin/swcli", std::nullopt), yang);
}

TEST(YangDirectory, IsNoneThatOnlyHasTheName)
{
    const TempDirectory place;
    fs::create_directories(place.Path() / "yang");
    fs::create_directories(place.Path() / "build/share/sflow-switch/yang");
    EXPECT_EQ(base::YangDirectory(place.Path() / "build/bin/cdbd", std::nullopt),
              SFLOW_TEST_INSTALLED_YANG_DIR);
}

TEST(YangDirectory, IsTheConfiguredOneForAProgramWithoutAPlace)
{
    EXPECT_EQ(base::YangDirectory("", std::nullopt), SFLOW_TEST_INSTALLED_YANG_DIR);
}

}  // namespace
