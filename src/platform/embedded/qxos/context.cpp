// SPDX-License-Identifier: Apache-2.0
// The process context and its loop, which ends on SIGTERM and SIGINT and reports to the service manager
// (ipc/notify.h).

#include <csignal>
#include <stdexcept>
#include <string>
#include <utility>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/signal_set.hpp>

#include "ipc/notify.h"
#include "platform/embedded/runtime.h"

/// The middleware's handle: what belongs to it is in the runtime.
struct qxmw {};

namespace qxos {

namespace {

class LoopServer final : public Server {
public:
    explicit LoopServer(embedded::Runtime& runtime) : m_runtime(runtime) {}

    int Run() override
    {
        const auto staysWithoutWork = boost::asio::make_work_guard(m_runtime.loop);
        m_runtime.loop.restart();
        ipc::ServiceNotifier manager(*m_runtime.timers);
        manager.Ready();
        m_runtime.loop.run();
        return 0;
    }

private:
    embedded::Runtime& m_runtime;
};

std::string NameOf(const qxmw_process_signature_t* signature)
{
    const std::string_view field(signature->name, sizeof signature->name);
    return std::string(field.substr(0, field.find('\0')));
}

}  // namespace

Context* the_context = nullptr;

class Context::Impl {
public:
    Impl(std::string process, const HaStateChangeCallbacks& callbacks)
        : m_callbacks(callbacks), m_runtime{std::move(process)}
    {
        // A log or a peer whose reader has gone must not end the process.
        std::signal(SIGPIPE, SIG_IGN);
        m_signals.async_wait([this](const boost::system::error_code& error, int) {
            if (!error) m_runtime.loop.stop();
        });
    }

    const HaStateChangeCallbacks m_callbacks;
    embedded::Runtime m_runtime;
    qxmw m_qxmw;
    boost::asio::signal_set m_signals{m_runtime.loop, SIGTERM, SIGINT};
    LoopServer m_server{m_runtime};
};

Context::Context(const qxmw_process_signature_t* signature, const HaStateChangeCallbacks& callbacks)
    : m_impl(std::make_unique<Impl>(NameOf(signature), callbacks))
{
}

Context::~Context() = default;

qxmw_t* Context::GetSharedQxmw() { return &m_impl->m_qxmw; }

Server& Context::GetServer() { return m_impl->m_server; }

embedded::Runtime& ContextAccess::RuntimeOf(Context& context) { return context.m_impl->m_runtime; }

const Context::HaStateChangeCallbacks& ContextAccess::CallbacksOf(Context& context)
{
    return context.m_impl->m_callbacks;
}

}  // namespace qxos

namespace embedded {

Runtime& TheRuntime()
{
    if (qxos::the_context == nullptr)
        throw std::logic_error("no process context is installed; set qxos::the_context first");
    return qxos::ContextAccess::RuntimeOf(*qxos::the_context);
}

}  // namespace embedded
