// SPDX-License-Identifier: Apache-2.0
#include "agent/netconf/backup.h"

#include <optional>
#include <string>

#include "agent/data/errors.h"
#include "agent/data/yang_tree.h"
#include "log/log.h"

namespace agent {
namespace {

/// What the worker hands to the loop.
struct Result {
    std::optional<cdb::Error> error;
};

void Refuse(const RequestPtr& request, cdb::ErrorTag tag, const std::string& why)
{
    request->Refuse(MakeError(Layer::kApplication, tag, why));
}

}  // namespace

Backup::Backup(boost::asio::io_context& loop, const cdb::Store& store) : m_loop(loop), m_store(store) {}

void Backup::Make(const RequestPtr& request)
{
    if (m_task)
        return Refuse(request, cdb::ErrorTag::kInUse, "another backup is being made; try again later");
    if (!m_worker) m_worker = base::MakeWorker(m_loop);
    const std::string file(ChildText(request->Operation(), "file"));
    const auto result = std::make_shared<Result>();
    m_task = m_worker->Do([copy = m_store.Backup(file), result] { result->error = copy(); },
                          [this, request, result, file] {
                              m_task.reset();
                              if (result->error) {
                                  slog::Error("{}", result->error->message);
                                  return Refuse(request, result->error->tag, result->error->message);
                              }
                              slog::Notice("{} has copied the store to {}", request->Who().user, file);
                              request->Ok();
                          });
}

}  // namespace agent
