// SPDX-License-Identifier: Apache-2.0
// A datastore on a store of its own, and the words to edit it with. For the tests of the datastore.

#ifndef TESTS_UNIT_CDB_DATASTORE_FIXTURE_H
#define TESTS_UNIT_CDB_DATASTORE_FIXTURE_H

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "cdb/datastore/datastore.h"
#include "cdb/datastore/tree.h"

namespace tests {

/// The modules under yang/, loaded once a process: schemas do not change.
const cdb::Schema& TheSchema();

/// A directory of this test's own, removed with the object.
class TempDirectory {
public:
    TempDirectory();
    ~TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;
    [[nodiscard]] const std::filesystem::path& Path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

/// The parsed content of a <config>. `xml` may use the prefix nc for NETCONF's namespace when it
/// declares it.
cdb::TreePtr ParseEdit(const std::string& xml, const cdb::Schema& schema = TheSchema());

/// "<config><oam><sflow>" + inner + ... with the namespaces in place.
std::string Sflow(const std::string& inner);
/// The same for <config> itself.
std::string Config(const std::string& inner, const std::string& attributes = "");

/// The explicit content of a tree as XML, lists sorted.
std::string Shown(const lyd_node* tree);

/// A ChangeSet as lines: "modified /config/oam/sflow/interface{eth1}", "set .../sampling-rate = 5".
std::vector<std::string> Lines(const cdb::ChangeSet& changes);

class DatastoreTest : public ::testing::Test {
protected:
    DatastoreTest() { Open(); }
    void Open(const cdb::StoreOptions& options = {});

    std::optional<cdb::Error> TryEdit(const std::string& xml,
                                      cdb::DefaultOperation operation = cdb::DefaultOperation::kMerge,
                                      const std::vector<cdb::LeafWrite>& writes = {});
    /// Fails the test on an error.
    void Edit(const std::string& xml, cdb::DefaultOperation operation = cdb::DefaultOperation::kMerge,
              const std::vector<cdb::LeafWrite>& writes = {});
    /// The datastores as complete trees.
    [[nodiscard]] cdb::TreePtr RunningTree() const;
    [[nodiscard]] cdb::TreePtr CandidateTree() const;
    cdb::ChangeSet Commit();
    /// Edit and commit.
    std::vector<std::string> Apply(const std::string& xml,
                                   cdb::DefaultOperation operation = cdb::DefaultOperation::kMerge);
    [[nodiscard]] cdb::LeafWrite DefaultRate(const std::string& interface, std::uint32_t rate) const;
    /// The created entries that the edit would ask about.
    [[nodiscard]] std::vector<std::string> Planned(
        const std::string& xml, cdb::DefaultOperation operation = cdb::DefaultOperation::kMerge) const;

    TempDirectory directory;
    std::unique_ptr<cdb::Store> store;
    std::unique_ptr<cdb::Datastore> datastore;
};

}  // namespace tests

#endif
