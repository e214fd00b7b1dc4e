// SPDX-License-Identifier: Apache-2.0
#include "agent/files/initial_file.h"

#include "agent/files/configuration_file.h"

namespace agent {

std::vector<std::string> LoadInitialFile(const cdb::Schema& schema, const cdb::Store& store,
                                         cdb::Datastore& datastore, const std::filesystem::path& file,
                                         const std::string& user, std::int64_t nowUs)
{
    if (!store.Empty())
        FailFile(file, "the store in " + store.Directory().string() +
                           " has a configuration already; change it with swcli, or use another --state-dir");
    const Tree content = ReadConfiguration(schema, file);
    cdb::CommitInfo info;
    info.user = user;
    info.source = "init";
    info.timeUs = nowUs;
    std::vector<std::string> warnings;
    const auto errors = datastore.Initialize(content.get(), info, warnings);
    if (!errors.empty()) FailFile(file, TextOf(errors));
    return warnings;
}

}  // namespace agent
