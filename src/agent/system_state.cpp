#include "agent/system_state.h"

#include <libyang/libyang.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <set>
#include <utility>

#include "ipc/text.h"
#include "log/log.h"

namespace agent {
namespace {

constexpr std::size_t kFaultsShown = 1000;

/// Adds leaves to a container or entry. A value that the schema does not take is left out.
class Adder {
public:
    explicit Adder(lyd_node* parent) : m_parent(parent) {}
    void Leaf(const char* name, const std::string& value) const
    {
        if (lyd_new_term(m_parent, nullptr, name, value.c_str(), 0, nullptr) != LY_SUCCESS)
            slog::Debug("state: {} can't be \"{}\"", name, value);
    }

private:
    lyd_node* m_parent;
};

const char* RoleName(Role role)
{
    switch (role) {
    case Role::kActive:
        return "active";
    case Role::kStandby:
        return "standby";
    case Role::kUnknown:
        break;
    }
    return "unknown";
}

const char* PhaseName(const Client& client)
{
    if (client.CurrentPhase() != Client::Phase::kReady) return "registering";
    return client.IsApplying() ? "applying" : "ready";
}

void AddProcess(lyd_node* system, const Client& client, Role role)
{
    const std::string& name = client.Process();
    const std::string pid = std::to_string(client.Pid());
    lyd_node* entry = nullptr;
    if (lyd_new_list(system, nullptr, "process", 0, &entry, name.c_str(), pid.c_str()) != LY_SUCCESS) return;
    const Adder adder(entry);
    adder.Leaf("connected-since", DateAndTime(client.ConnectedUs()));
    adder.Leaf("role", RoleName(role));
    adder.Leaf("state", PhaseName(client));
    std::set<std::string> paths;
    for (const Subscription& each : client.Subscriptions())
        if (paths.insert(each.path).second) adder.Leaf("subscription", each.path);
    for (const std::string& each : client.Callpoints()) adder.Leaf("callpoint", each);
}

void AddFault(lyd_node* system, const cdb::Fault& fault)
{
    lyd_node* entry = nullptr;
    const std::string number = std::to_string(fault.number);
    if (lyd_new_list(system, nullptr, "fault", 0, &entry, number.c_str()) != LY_SUCCESS) return;
    const Adder adder(entry);
    // What an older cdbd has written came in as it was.
    adder.Leaf("time", DateAndTime(fault.timeUs));
    adder.Leaf("process", ipc::Presentable(fault.process));
    adder.Leaf("pid", std::to_string(fault.pid));
    adder.Leaf("kind", std::to_string(fault.kind));
    adder.Leaf("function", ipc::Presentable(fault.function));
    adder.Leaf("file", ipc::Presentable(fault.file));
    adder.Leaf("line", std::to_string(fault.line));
    adder.Leaf("text", ipc::Presentable(fault.text));
}

}  // namespace

Tree MakeSystemState(const ly_ctx* context, const std::vector<ClientPtr>& clients, Role role,
                     const cdb::Store& store)
{
    const lys_module* module = ly_ctx_get_module_implemented(context, "switch-state");
    lyd_node* state = nullptr;
    if (module == nullptr || lyd_new_inner(nullptr, module, "state", 0, &state) != LY_SUCCESS) return {};
    Tree tree(state);
    lyd_node* system = nullptr;
    if (lyd_new_inner(state, module, "system", 0, &system) != LY_SUCCESS) return tree;
    std::set<std::pair<std::string, std::int64_t>> seen;  // a process may hold several connections
    for (const ClientPtr& client : clients)
        if (seen.emplace(client->Process(), client->Pid()).second) AddProcess(system, *client, role);
    for (const cdb::Fault& fault : store.Faults(kFaultsShown)) AddFault(system, fault);
    return tree;
}

std::string DateAndTime(std::int64_t timeUs)
{
    using std::chrono::microseconds;
    const auto seconds =
        static_cast<std::time_t>(std::chrono::floor<std::chrono::seconds>(microseconds(timeUs)).count());
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%s.%06ldZ", date.data(),
                  static_cast<long>(timeUs - static_cast<std::int64_t>(seconds) * 1'000'000));
    return text.data();
}

}  // namespace agent
