// SPDX-License-Identifier: Apache-2.0
// What the datastore costs: a one-leaf change at several sizes, a large load and its parts, with
// libyang's own parsing and validation of the same content beside them. Durable commits include the
// disk; "cpu" columns do not.

#include <benchmark/benchmark.h>
#include <libyang/libyang.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "cdb/datastore/datastore.h"
#include "cdb/datastore/tree.h"

namespace {

using cdb::DefaultOperation;

constexpr int kCollectors = 8;
constexpr int kMany = 10000;

const cdb::Schema& TheSchema()
{
    static const auto schema = cdb::Schema::Load(SFLOW_BENCH_YANG_DIR);
    return *schema;
}

std::string Sflow(const std::string& inner)
{
    return "<config xmlns=\"urn:switch:yang:switch-config\"><oam "
           "xmlns=\"urn:switch:yang:switch-oam-sflow\"><sflow>" +
           inner + "</sflow></oam></config>";
}

std::string Reference(const char* list, int collector)
{
    const std::string name(list);
    return "<" + name + "><name>c" + std::to_string(collector % kCollectors) + "</name></" + name + ">";
}

/// Interfaces with two collectors of flow samples and one of counters each, out of eight.
std::string Configuration(int interfaces)
{
    std::string text;
    for (int i = 0; i < kCollectors; ++i)
        text += "<collector><name>c" + std::to_string(i) + "</name><ip>192.0.2." + std::to_string(i + 1) +
                "</ip></collector>";
    for (int i = 0; i < interfaces; ++i)
        text += "<interface><name>gigabit-ethernet-1/1/" + std::to_string(i) +
                "</name><sampling-rate>512</sampling-rate>" + Reference("flow-sampling-collector", i) +
                Reference("flow-sampling-collector", i + 1) + Reference("counter-sampling-collector", i + 2) +
                "</interface>";
    return Sflow(text);
}

std::string OneLeaf(int interface, int rate)
{
    return Sflow("<interface><name>gigabit-ethernet-1/1/" + std::to_string(interface) +
                 "</name><sampling-rate>" + std::to_string(rate) + "</sampling-rate></interface>");
}

cdb::TreePtr Parse(const std::string& xml)
{
    lyd_node* tree = nullptr;
    if (lyd_parse_data_mem(TheSchema().Context(), xml.c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_OPAQ, 0,
                           &tree) != LY_SUCCESS)
        throw std::runtime_error(cdb::LastMessage(TheSchema().Context()));
    return cdb::TreePtr(tree);
}

/// A datastore in a directory of its own, gone with the object.
class World {
public:
    explicit World(int interfaces)
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "datastore-bench-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary directory");
        m_directory = pattern;
        m_store = cdb::Store::Open(m_directory / "store");
        datastore = std::make_unique<cdb::Datastore>(TheSchema(), *m_store);
        if (interfaces == 0) return;
        Edit(Parse(Configuration(interfaces)).get());
        Commit();
    }
    ~World()
    {
        datastore.reset();
        m_store.reset();
        std::error_code ignored;
        std::filesystem::remove_all(m_directory, ignored);
    }
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    void Edit(const lyd_node* edit, const std::vector<cdb::LeafWrite>& writes = {}) const
    {
        if (const auto error = datastore->Edit(edit, DefaultOperation::kMerge, writes))
            throw std::runtime_error(error->message);
    }
    void Commit() const
    {
        const auto result = datastore->Commit({});
        if (!result) throw std::runtime_error(result.error().front().message);
    }

    std::unique_ptr<cdb::Datastore> datastore;

private:
    std::filesystem::path m_directory;
    std::unique_ptr<cdb::Store> m_store;
};

/// Resident memory in MB.
double Resident()
{
    std::size_t size = 0;
    std::size_t resident = 0;
    FILE* file = std::fopen("/proc/self/statm", "r");
    if (file == nullptr) return 0;
    const int read = std::fscanf(file, "%zu %zu", &size, &resident);
    std::fclose(file);
    constexpr double kMega = 1024.0 * 1024.0;
    return read == 2 ? static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / kMega : 0;
}

// ---- one leaf ----

void OneLeafEditValidateDiscard(benchmark::State& state)
{
    const auto interfaces = static_cast<int>(state.range(0));
    const World world(interfaces);
    int rate = 1;
    for (auto _ : state) {
        state.PauseTiming();
        const auto edit = Parse(OneLeaf(interfaces / 2, 1000 + ++rate % 1000));
        state.ResumeTiming();
        benchmark::DoNotOptimize(world.datastore->EntriesToCreate(edit.get(), DefaultOperation::kMerge));
        world.Edit(edit.get());
        benchmark::DoNotOptimize(world.datastore->Validate());
        benchmark::DoNotOptimize(world.datastore->Changes());
        world.datastore->Discard();
    }
}
BENCHMARK(OneLeafEditValidateDiscard)->Arg(100)->Arg(1000)->Arg(kMany)->Unit(benchmark::kMicrosecond);

void OneLeafEditDiscard(benchmark::State& state)
{
    const auto interfaces = static_cast<int>(state.range(0));
    const World world(interfaces);
    const auto edit = Parse(OneLeaf(interfaces / 2, 1000));
    for (auto _ : state) {
        world.Edit(edit.get());
        world.datastore->Discard();
    }
}
BENCHMARK(OneLeafEditDiscard)->Arg(100)->Arg(kMany)->Unit(benchmark::kMicrosecond);

/// The same in a candidate of its own: begun, edited, gone.
void OneLeafEditInAFork(benchmark::State& state)
{
    const auto interfaces = static_cast<int>(state.range(0));
    const World world(interfaces);
    const auto edit = Parse(OneLeaf(interfaces / 2, 1000));
    for (auto _ : state) {
        const auto own = world.datastore->Fork();
        if (const auto error = own->Edit(edit.get(), DefaultOperation::kMerge, {}))
            throw std::runtime_error(error->message);
    }
}
BENCHMARK(OneLeafEditInAFork)->Arg(100)->Arg(kMany)->Unit(benchmark::kMicrosecond);

/// One leaf of a candidate behind which there are `commits` of others, carried over and validated.
void OneLeafCarriedOver(benchmark::State& state)
{
    const World world(kMany);
    const auto own = world.datastore->Fork();
    for (int i = 0; i < state.range(0); ++i) {
        world.Edit(Parse(OneLeaf(i, 2000 + i)).get());
        world.Commit();
    }
    const auto edit = Parse(OneLeaf(kMany / 2, 1000));
    if (own->Edit(edit.get(), DefaultOperation::kMerge, {})) throw std::runtime_error("the edit is refused");
    for (auto _ : state)
        if (!own->Validate().empty()) throw std::runtime_error("a conflict");
}
BENCHMARK(OneLeafCarriedOver)->Arg(1)->Arg(100)->Unit(benchmark::kMicrosecond);

void OneLeafEditCommit(benchmark::State& state)
{
    const auto interfaces = static_cast<int>(state.range(0));
    const World world(interfaces);
    int rate = 1;
    for (auto _ : state) {
        const auto edit = Parse(OneLeaf(interfaces / 2, 1000 + ++rate % 1000));
        benchmark::DoNotOptimize(world.datastore->EntriesToCreate(edit.get(), DefaultOperation::kMerge));
        world.Edit(edit.get());
        world.Commit();
    }
}
BENCHMARK(OneLeafEditCommit)->Arg(100)->Arg(1000)->Arg(kMany)->Unit(benchmark::kMicrosecond)->Iterations(500);

void CollectorDeletedAndReferrersFound(benchmark::State& state)
{
    const World world(static_cast<int>(state.range(0)));
    const auto add = Parse(Sflow("<collector><name>spare</name><ip>192.0.2.99</ip></collector>"));
    const auto remove =
        Parse(Sflow("<collector xmlns:nc=\"urn:ietf:params:xml:ns:netconf:base:1.0\" "
                    "nc:operation=\"delete\"><name>spare</name></collector>"));
    world.Edit(add.get());
    world.Commit();
    for (auto _ : state) {
        world.Edit(remove.get());
        benchmark::DoNotOptimize(world.datastore->Validate());
        world.datastore->Discard();
    }
}
BENCHMARK(CollectorDeletedAndReferrersFound)->Arg(100)->Arg(kMany)->Unit(benchmark::kMicrosecond);

// ---- a large load ----

void LibyangParse(benchmark::State& state)
{
    const std::string text = Configuration(static_cast<int>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(Parse(text));
}
BENCHMARK(LibyangParse)->Arg(kMany)->Unit(benchmark::kMillisecond);

void LibyangParseAndValidate(benchmark::State& state)
{
    const std::string text = Configuration(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        lyd_node* tree = nullptr;
        const auto result = lyd_parse_data_mem(TheSchema().Context(), text.c_str(), LYD_XML,
                                               LYD_PARSE_NO_STATE, LYD_VALIDATE_PRESENT, &tree);
        if (result != LY_SUCCESS) throw std::runtime_error("not valid");
        lyd_free_all(tree);
    }
}
BENCHMARK(LibyangParseAndValidate)->Arg(kMany)->Unit(benchmark::kMillisecond);

/// The parts of a load, each by itself.
enum class Part { kPlan, kEdit, kValidate, kChanges, kCommit, kAll };

void Load(benchmark::State& state, Part part)
{
    const auto edit = Parse(Configuration(static_cast<int>(state.range(0))));
    const auto timed = [&](Part which, auto&& work) {
        if (part != Part::kAll && part == which) state.ResumeTiming();
        work();
        if (part != Part::kAll && part == which) state.PauseTiming();
    };
    for (auto _ : state) {
        state.PauseTiming();
        {
            const World world(0);
            std::vector<cdb::LeafWrite> writes;
            const cdb::NodeId leaf =
                TheSchema().Table().Find("/config/oam/sflow/interface/default-sampling-rate");
            if (part == Part::kAll) state.ResumeTiming();
            timed(Part::kPlan, [&] {
                for (auto& entry : world.datastore->EntriesToCreate(edit.get(), DefaultOperation::kMerge)) {
                    writes.push_back({std::move(entry.path), cdb::Value(std::uint32_t{1024})});
                    writes.back().path.steps.push_back({leaf, {}, std::nullopt});
                }
            });
            timed(Part::kEdit, [&] { world.Edit(edit.get(), writes); });
            timed(Part::kValidate, [&] {
                if (part != Part::kAll) benchmark::DoNotOptimize(world.datastore->Validate());
            });
            timed(Part::kChanges, [&] {
                if (part != Part::kAll) benchmark::DoNotOptimize(world.datastore->Changes());
            });
            timed(Part::kCommit, [&] { world.Commit(); });
            if (part == Part::kAll) state.PauseTiming();
            state.counters["resident MB"] = Resident();
        }
        state.ResumeTiming();
    }
}
BENCHMARK_CAPTURE(Load, plan, Part::kPlan)->Arg(kMany)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Load, edit, Part::kEdit)->Arg(kMany)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Load, validate, Part::kValidate)->Arg(kMany)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Load, changes, Part::kChanges)->Arg(kMany)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Load, commit, Part::kCommit)->Arg(kMany)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Load, all, Part::kAll)->Arg(kMany)->Unit(benchmark::kMillisecond);

// ---- rolling back ----

/// Milliseconds.
template <typename Work>
double TimeOf(const Work& work)
{
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
}

/// One change and its commit, and the roll-back of it and its commit, one after the other; the least of each,
/// since others use the machine too. Parsing is not counted. `changed`: so many interfaces are changed, in a
/// configuration of 10,000.
void RollBackBesideCommit(benchmark::State& state)
{
    const World world(kMany);
    const auto changed = static_cast<int>(state.range(0));
    double edit = 1e9;
    double commit = 1e9;
    double rollback = 1e9;
    double again = 1e9;
    int rate = 1000;
    for (auto _ : state) {
        ++rate;
        std::string text;
        for (int i = 0; i < changed; ++i)
            text += "<interface><name>gigabit-ethernet-1/1/" + std::to_string(i) + "</name><sampling-rate>" +
                    std::to_string(rate) + "</sampling-rate></interface>";
        const auto parsed = Parse(Sflow(text));
        edit = std::min(edit, TimeOf([&] { world.Edit(parsed.get()); }));
        commit = std::min(commit, TimeOf([&] { world.Commit(); }));
        world.datastore->TidyUp();
        rollback = std::min(rollback, TimeOf([&] {
                                if (!world.datastore->RollBack({.back = 1}).empty())
                                    throw std::runtime_error("no roll-back");
                            }));
        again = std::min(again, TimeOf([&] { world.Commit(); }));
        world.datastore->TidyUp();
    }
    state.counters["edit ms"] = edit;
    state.counters["commit ms"] = commit;
    state.counters["rollback ms"] = rollback;
    state.counters["its commit ms"] = again;
    state.counters["times"] = (rollback + again) / (edit + commit);
}
BENCHMARK(RollBackBesideCommit)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(300);
BENCHMARK(RollBackBesideCommit)->Arg(kMany)->Unit(benchmark::kMillisecond)->Iterations(10);

// ---- memory ----

/// Resident memory with a large configuration whose every interface has been changed and whose
/// history is full, and what ten thousand more one-leaf commits add to it.
void MemoryOverCommits(benchmark::State& state)
{
    const World world(kMany);
    const auto changeEach = [&world](int rate) {
        for (int i = 0; i < kMany; ++i) {
            const auto edit = Parse(OneLeaf(i, rate + i));
            world.Edit(edit.get());
            world.Commit();
        }
    };
    changeEach(1);
    const double before = Resident();
    for (auto _ : state) changeEach(2);
    state.counters["resident MB"] = before;
    state.counters["grown by MB"] = Resident() - before;
}
BENCHMARK(MemoryOverCommits)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
