#include "agent/initial_file.h"

#include "agent/configuration_file.h"
#include "agent/yang_tree.h"

namespace agent {
namespace {

[[noreturn]] void Fail(const std::filesystem::path& file, const std::string& what)
{
    throw cdb::FatalError(file.string() + ": " + what);
}

}  // namespace

std::vector<std::string> LoadInitialFile(const cdb::Schema& schema, const cdb::Store& store,
                                         cdb::Datastore& datastore, const std::filesystem::path& file,
                                         const std::string& user, std::int64_t nowUs)
{
    if (!store.Empty())
        Fail(file, "the store in " + store.Directory().string() +
                       " has a configuration already; change it with swcli, or use another --state-dir");
    const Tree content = ReadConfigurationFile(schema, file);
    cdb::CommitInfo info;
    info.user = user;
    info.source = "init";
    info.timeUs = nowUs;
    std::vector<std::string> warnings;
    const auto errors = datastore.Initialize(content.get(), info, warnings);
    if (!errors.empty()) {
        std::string text;
        for (const cdb::Error& error : errors) text += (text.empty() ? "" : "; ") + error.message;
        Fail(file, text);
    }
    return warnings;
}

}  // namespace agent
