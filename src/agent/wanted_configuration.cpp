#include "agent/wanted_configuration.h"

#include <libyang/libyang.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "cdb/tree.h"
#include "cdb/tree_load.h"
#include "ipc/frame.h"
#include "log/log.h"

namespace agent {
namespace {

/// All parts of one question; a message has little beside them.
constexpr std::size_t kMaxBytes = ipc::kMaxFrame / 2;

}  // namespace

void AddWantedConfiguration(const cdb::Schema& schema, cdb::RowView& rows, const Client& client,
                            ipc::cdb::StateRequest& request)
{
    const auto tree = cdb::LoadTree(schema, rows);
    const lyd_node* running = tree.get();
    std::size_t bytes = 0;
    for (const StateProvision& provided : client.Providers()) {
        if (provided.configPath.empty() || running == nullptr) continue;
        const lyd_node* container =
            cdb::FindRow(schema, running, {schema.Table().Find(provided.configPath), {}});
        if (container == nullptr) continue;
        char* printed = nullptr;
        const LY_ERR result =
            lyd_print_mem(&printed, container, LYD_JSON,
                          LYD_PRINT_SHRINK | LYD_PRINT_WD_EXPLICIT | LYD_PRINT_KEEPEMPTYCONT);
        const std::unique_ptr<char, decltype(&std::free)> owned(printed, &std::free);
        if (result != LY_SUCCESS || printed == nullptr) continue;
        const std::size_t size = std::strlen(printed);
        if (bytes + size > kMaxBytes) {
            slog::Error("{} is asked for its state without {}: it is larger than a message may be",
                        client.Name(), provided.configPath);
            continue;
        }
        bytes += size;
        auto& part = *request.add_configuration();
        part.set_path(provided.configPath);
        part.set_json(printed, size);
    }
}

}  // namespace agent
