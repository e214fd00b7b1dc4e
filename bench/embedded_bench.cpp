// SPDX-License-Identifier: Apache-2.0
// The configuration reads of the daemon's initial load, on a store of its own: the collectors, all
// interfaces in one call, and each interface's two collector lists.

#include <confd_cdb.h>
#include <qxos/context.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "cdb/schema/schema.h"
#include "cdb/store/store.h"
#include "platform/embedded/runtime.h"

namespace {

constexpr const char* kCollectorList = "/config/oam/sflow/collector";
constexpr const char* kInterfaceList = "/config/oam/sflow/interface";
constexpr const char* kFlowList = "/config/oam/sflow/interface{%s}/flow-sampling-collector";
constexpr const char* kCounterList = "/config/oam/sflow/interface{%s}/counter-sampling-collector";
constexpr int kValues = 5;
constexpr int kCollectors = 8;

std::string Interface(int number) { return "gigabit-ethernet-1/1/" + std::to_string(number); }
std::string Collector(int number) { return "collector-" + std::to_string(number % kCollectors); }

/// A store with `interfaces` interfaces, each with 2 flow and 1 counter collector out of 8.
class FilledStore {
public:
    explicit FilledStore(int interfaces)
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "embedded-bench-XXXXXX").string();
        m_directory = ::mkdtemp(pattern.data());
        const auto schema = cdb::Schema::Load(SFLOW_BENCH_YANG_DIR);
        const auto& table = schema->Table();
        const auto store = cdb::Store::Open(m_directory);
        store->SetSchema(table);
        auto transaction = store->Begin();
        const auto collectors = table.Find(kCollectorList);
        for (int i = 0; i < kCollectors; ++i)
            transaction.Put({collectors, {Collector(i)}}, {{{"ip", cdb::Ipv4{0x010200c0}}}});
        const auto list = table.Find(kInterfaceList);
        const auto flow = table.Child(list, "flow-sampling-collector");
        const auto counter = table.Child(list, "counter-sampling-collector");
        for (int i = 0; i < interfaces; ++i) {
            transaction.Put({list, {Interface(i)}}, {{{"default-sampling-rate", std::uint32_t{8192}}}});
            transaction.Put({flow, {Interface(i), Collector(i)}}, {});
            transaction.Put({flow, {Interface(i), Collector(i + 1)}}, {});
            transaction.Put({counter, {Interface(i), Collector(i + 2)}}, {});
        }
        transaction.Append({1, 0, "bench", "init", "", ""});
        if (const auto error = transaction.Commit()) throw std::runtime_error(error->message);
    }
    FilledStore(const FilledStore&) = delete;
    FilledStore& operator=(const FilledStore&) = delete;
    ~FilledStore() { std::filesystem::remove_all(m_directory); }

    [[nodiscard]] std::string Directory() const { return m_directory; }

private:
    std::filesystem::path m_directory;
};

/// Counts and reads one list as the daemon does, the names of its entries into `names`.
template <typename... Args>
bool ReadList(int sock, int perEntry, std::vector<std::string>& names, const char* path, Args... args)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    names.clear();
    const int count = cdb_num_instances(sock, path, args...);
    if (count <= 0) return count == 0;
    std::vector<confd_value_t> values(static_cast<std::size_t>(count * perEntry));
    if (cdb_get_objects(sock, values.data(), perEntry, 0, count, path, args...) < 1) return false;
#pragma GCC diagnostic pop
    for (std::size_t i = 0; i < values.size(); i += static_cast<std::size_t>(perEntry)) {
        names.emplace_back(reinterpret_cast<const char*>(CONFD_GET_BUFPTR(&values[i])));
        confd_free_value(&values[i]);
    }
    return true;
}

bool ReadEverything(int sock)
{
    std::vector<std::string> interfaces;
    std::vector<std::string> names;
    if (!ReadList(sock, kValues, names, kCollectorList) ||
        !ReadList(sock, kValues, interfaces, kInterfaceList))
        return false;
    for (const auto& interface : interfaces) {
        if (!ReadList(sock, 1, names, kFlowList, interface.c_str()) || names.size() != 2) return false;
        if (!ReadList(sock, 1, names, kCounterList, interface.c_str()) || names.size() != 1) return false;
    }
    return true;
}

void InitialReads(benchmark::State& state)
{
    const FilledStore store(static_cast<int>(state.range(0)));
    const qxmw_process_signature_t signature{"bench"};
    const auto context = std::make_unique<qxos::Context>(&signature, qxos::Context::HaStateChangeCallbacks{});
    qxos::the_context = context.get();
    auto& database = qxos::ContextAccess::RuntimeOf(*context).database;
    database.Open(store.Directory());
    for (auto _ : state) {
        const int sock = database.OpenSession();
        if (!ReadEverything(sock)) state.SkipWithError(confd_lasterr());
        database.CloseSession(sock);
    }
    qxos::the_context = nullptr;
}
BENCHMARK(InitialReads)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
