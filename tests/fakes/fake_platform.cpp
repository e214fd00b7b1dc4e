// SPDX-License-Identifier: Apache-2.0
#include "fakes/fake_platform.h"

#include <qxmw/qxmw.h>

#include <cstdio>
#include <utility>

namespace fakes {

namespace {

class FakeServer : public qxos::Server {
public:
    int Run() override
    {
        Platform& platform = Platform::Get();
        platform.recorder.Note("loop run");
        if (platform.loop) return platform.loop();
        while (platform.Pump()) {
        }
        return 0;
    }
};

class FakeService : public sflow::IService {
public:
    ~FakeService() override
    {
        Platform& platform = Platform::Get();
        platform.recorder.Note("service delete");
        platform.service = nullptr;
        platform.found.reset();
        platform.lost.reset();
    }

    bool IsConnected() const override { return Platform::Get().sessionOpen; }

    void AddCollector(const std::string& name, const nettypes::IPv4Addr& address, std::uint16_t port,
                      std::uint16_t datagramSize) override
    {
        Record("AddCollector", {name, address.to_string(), port, datagramSize});
    }
    void DeleteCollector(const std::string& name) override { Record("DeleteCollector", {name}); }
    void UpdateInterface(const std::string& interface, const std::string& sampleCollector,
                         const std::string& counterCollector, std::uint32_t rate, int direction,
                         std::uint16_t maxHeaderSize, std::uint16_t interval) override
    {
        Record("UpdateInterface", {interface, sampleCollector, counterCollector, rate,
                                   static_cast<std::uint32_t>(direction), maxHeaderSize, interval});
    }
    void AddSampleCollector(const std::string& interface, const std::string& collector) override
    {
        Record("AddSampleCollector", {interface, collector});
    }
    void RemoveSampleCollector(const std::string& interface, const std::string& collector) override
    {
        Record("RemoveSampleCollector", {interface, collector});
    }
    void AddCounterCollector(const std::string& interface, const std::string& collector) override
    {
        Record("AddCounterCollector", {interface, collector});
    }
    void RemoveCounterCollector(const std::string& interface, const std::string& collector) override
    {
        Record("RemoveCounterCollector", {interface, collector});
    }
    void UnsetInterface(const std::string& interface) override { Record("UnsetInterface", {interface}); }
    void SetAgentAddress(const nettypes::IPv4Addr& address) override
    {
        Record("SetAgentAddress", {address.to_string()});
    }

private:
    static void Record(std::string operation, std::vector<ServiceCall::Argument> arguments)
    {
        Platform& platform = Platform::Get();
        ServiceCall call{std::move(operation), std::move(arguments)};
        platform.recorder.Note("service " + ToText(call));
        if (platform.sessionOpen) platform.received.push_back(call);
        platform.recorder.calls.push_back(std::move(call));
        if (platform.onServiceCall) platform.onServiceCall();
    }
};

}  // namespace

std::string ToText(const ServiceCall& call)
{
    std::string text = call.operation + "(";
    const char* separator = "";
    for (const ServiceCall::Argument& argument : call.arguments) {
        text += separator;
        if (const auto* word = std::get_if<std::string>(&argument)) {
            text += "\"" + *word + "\"";
        } else {
            text += std::to_string(std::get<std::uint32_t>(argument));
        }
        separator = ", ";
    }
    return text + ")";
}

int Confd::OpenCdbSession(cdb_db_type database, bool subscriptionLock)
{
    if (!refusal.empty()) throw QxConfdSessionError(refusal);
    Platform& platform = Platform::Get();
    platform.recorder.Note("session open " + std::to_string(database) +
                           (subscriptionLock ? " true" : " false"));
    return platform.cdb.OpenSession();
}

void Confd::CloseCdbSession(int socket) noexcept
{
    Platform& platform = Platform::Get();
    platform.recorder.Note("session close");
    platform.cdb.CloseSession(socket);
}

Platform& Platform::Get()
{
    static Platform platform;
    return platform;
}

void Platform::Reset()
{
    recorder = Recorder();
    cdb.Reset();
    confd.connected = true;
    confd.refusal.clear();
    processName.clear();
    callbacks = {};
    framework = {};
    onFrameworkBuilt = nullptr;
    loop = nullptr;
    onServiceCall = nullptr;
    managerPresent = false;
    sessionOpen = false;
    received.clear();
    openTransactions.clear();
    writes.clear();
    unreleased.clear();
    strings.clear();
    released.clear();
    dirtyBuffers = 0;
    lastError.clear();
    waiting.clear();
}

void Platform::SetManager(bool present)
{
    managerPresent = present;
    waiting.emplace_back([this] { TellOfManager(); });
}

void Platform::TellOfManager()
{
    if (service == nullptr || sessionOpen == managerPresent) return;
    managerPresent ? ManagerFound() : ManagerLost();
}

void Platform::ManagerFound()
{
    managerPresent = true;
    if (!found) return;
    sessionOpen = true;
    const sflow::IService::Notice notice = *found;
    notice.first(notice.second);
}

void Platform::ManagerLost()
{
    managerPresent = false;
    if (!lost) return;
    sessionOpen = false;
    const sflow::IService::Notice notice = *lost;
    notice.first(notice.second);
}

bool Platform::Pump()
{
    if (waiting.empty()) return false;
    const auto next = std::move(waiting.front());
    waiting.pop_front();
    next();
    return true;
}

}  // namespace fakes

using fakes::Platform;

struct qxmw {};

namespace qxos {

Context* the_context = nullptr;

class Context::Impl {
public:
    qxmw middleware;
    fakes::FakeServer server;
};

Context::Context(const qxmw_process_signature_t* signature, const HaStateChangeCallbacks& callbacks)
    : m_impl(std::make_unique<Impl>())
{
    Platform& platform = Platform::Get();
    platform.processName = signature->name;
    platform.signatureRest = 0;
    for (std::size_t i = platform.processName.size(); i < sizeof signature->name; ++i)
        platform.signatureRest += signature->name[i] != 0 ? 1 : 0;
    platform.callbacks = callbacks;
    platform.recorder.Note("context create");
}

Context::~Context()
{
    Platform::Get().recorder.Note(the_context == this ? "context delete (installed)" : "context delete");
    Platform::Get().callbacks = {};
}

qxmw_t* Context::GetSharedQxmw()
{
    Platform::Get().recorder.Note("context qxmw");
    return &m_impl->middleware;
}

Server& Context::GetServer() { return m_impl->server; }

}  // namespace qxos

namespace qxconfd {

class AppInterface::Impl {};

AppInterface::AppInterface(qxmw_t* qxmw, zlog_category_t* category, const std::string& application,
                           const std::vector<ConfigHandler*>& configHandlers,
                           const std::vector<ActionHandler*>& actionHandlers,
                           const std::vector<DataHandler*>& dataHandlers, ELEM_CONFD_PHASE_ET startPhase,
                           int options)
    : m_impl(std::make_unique<Impl>())
{
    Platform& platform = Platform::Get();
    platform.framework = {qxmw,           category,     application, configHandlers,
                          actionHandlers, dataHandlers, startPhase,  options};
    for (ConfigHandler* handler : configHandlers) handler->SetConfdInterface(&platform.confd);
    for (ActionHandler* handler : actionHandlers) handler->SetConfdInterface(&platform.confd);
    for (DataHandler* handler : dataHandlers) handler->SetConfdInterface(&platform.confd);
    platform.recorder.Note("framework create");
    if (platform.onFrameworkBuilt) platform.onFrameworkBuilt();
}

AppInterface::~AppInterface() { Platform::Get().recorder.Note("framework delete"); }

void AppInterface::Dispose()
{
    Platform::Get().recorder.Note("framework dispose");
    delete this;
}

}  // namespace qxconfd

std::unique_ptr<sflow::IService> sflow::IService::Build(Notice found, Notice lost)
{
    Platform& platform = Platform::Get();
    platform.recorder.Note("service build");
    auto service = std::make_unique<fakes::FakeService>();
    platform.service = service.get();
    platform.found = std::move(found);
    platform.lost = std::move(lost);
    if (platform.managerPresent) platform.waiting.emplace_back([&platform] { platform.TellOfManager(); });
    return service;
}

extern "C" {

// Faults also go to standard error, where a test that ends the process finds them.
void qxmw_gen_fault(int kind, const char* function, const char* file, int line, const char* text)
{
    fakes::Recorder& recorder = Platform::Get().recorder;
    recorder.faults.push_back({kind, function, file, text});
    recorder.faultLineNumbers.push_back(line);
    recorder.Note("fault");
    std::fprintf(stderr, "fault kind=%d function=%s source=%s line=%d text='%s'\n", kind, function, file,
                 line, text);
}

void qxmw_print_backtrace(void) { Platform::Get().recorder.Note("backtrace"); }
}
