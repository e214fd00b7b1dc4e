// SPDX-License-Identifier: Apache-2.0
// What reading costs, from the filter as it was sent to the XML that goes out: one entry by its key at
// several sizes, many by name, everything, selections at both levels of lists. "Print" beside it is
// libyang's own printing of the same tree.

#include <benchmark/benchmark.h>
#include <libyang/libyang.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include "agent/data/data_source.h"
#include "agent/data/data_writer.h"
#include "agent/data/yang_tree.h"
#include "cdb/rows/row_view.h"
#include "cdb/store/store.h"

namespace {

using agent::FilterNode;
using agent::SubtreeFilter;

constexpr int kCollectors = 8;
constexpr int kMany = 10'000;
constexpr const char* kSflow = "/config/oam/sflow";

const cdb::Schema& TheSchema()
{
    static const auto schema = cdb::Schema::Load(SFLOW_BENCH_YANG_DIR);
    return *schema;
}

const agent::DataSchema& TheDataSchema()
{
    static const agent::DataSchema schema(TheSchema());
    return schema;
}

std::string NameOf(int interface) { return "gigabit-ethernet-1/1/" + std::to_string(interface); }

/// Interfaces with two collectors of flow samples and one of counters each, out of eight, in a store of
/// its own, gone with the object.
class World {
public:
    explicit World(int interfaces)
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "read-bench-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary directory");
        m_directory = pattern;
        store = cdb::Store::Open(m_directory / "store");
        store->SetSchema(TheSchema().Table());
        auto transaction = store->Begin();
        const auto put = [&](const std::string& path, std::vector<std::string> keys, cdb::Row row) {
            transaction.Put({TheSchema().Table().Find(kSflow + path), std::move(keys)}, row);
        };
        for (int i = 0; i < kCollectors; ++i)
            put("/collector", {"c" + std::to_string(i)},
                {{{"ip", cdb::Ipv4{0x010200c0U + (static_cast<std::uint32_t>(i) << 24U)}}}});
        const auto collector = [](int i) { return "c" + std::to_string(i % kCollectors); };
        for (int i = 0; i < interfaces; ++i) {
            put("/interface", {NameOf(i)}, {{{"sampling-rate", 512U}, {"default-sampling-rate", 4096U}}});
            put("/interface/flow-sampling-collector", {NameOf(i), collector(i)}, {});
            put("/interface/flow-sampling-collector", {NameOf(i), collector(i + 1)}, {});
            put("/interface/counter-sampling-collector", {NameOf(i), collector(i + 2)}, {});
        }
        transaction.Append({1, 1, "", "", "", ""});
        if (const auto error = transaction.Commit()) throw std::runtime_error(error->message);
    }
    ~World()
    {
        store.reset();
        std::error_code ignored;
        std::filesystem::remove_all(m_directory, ignored);
    }
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    /// The same as a tree, with its defaults.
    agent::Tree Parsed() const
    {
        const auto rows = cdb::MakeRowView(*store);
        agent::RowSource source(TheDataSchema(), *rows);
        std::string text;
        agent::WriteData(TheDataSchema(), source, {}, text);
        lyd_node* tree = nullptr;
        if (lyd_parse_data_mem(TheSchema().Context(), text.c_str(), LYD_XML, LYD_PARSE_ONLY, 0, &tree) !=
                LY_SUCCESS ||
            lyd_new_implicit_all(&tree, TheSchema().Context(), LYD_IMPLICIT_NO_STATE, nullptr) != LY_SUCCESS)
            throw std::runtime_error("the tree can't be made");
        return agent::Tree(tree);
    }

    std::unique_ptr<cdb::Store> store;

private:
    std::filesystem::path m_directory;
};

World& Of(int interfaces)
{
    static std::map<int, std::unique_ptr<World>> worlds;
    auto& world = worlds[interfaces];
    if (!world) world = std::make_unique<World>(interfaces);
    return *world;
}

FilterNode Node(std::string name, std::vector<FilterNode> children = {}, std::string text = {})
{
    FilterNode node;
    node.name = std::move(name);
    node.text = std::move(text);
    node.children = std::move(children);
    return node;
}

FilterNode InSflow(std::vector<FilterNode> children)
{
    return Node("config", {Node("oam", {Node("sflow", std::move(children))})});
}

FilterNode Named(int interface) { return Node("interface", {Node("name", {}, NameOf(interface))}); }

/// A thousand of ten thousand, in one container or each with its whole path.
SubtreeFilter Thousand(bool together)
{
    SubtreeFilter filter;
    std::vector<FilterNode> names;
    for (int i = 0; i < kMany; i += 10) {
        if (together)
            names.push_back(Named(i));
        else
            filter.push_back(InSflow({Named(i)}));
    }
    if (together) filter.push_back(InSflow(std::move(names)));
    return filter;
}

void Read(benchmark::State& state, const World& world, const SubtreeFilter* filter,
          agent::Defaults defaults = agent::Defaults::kExplicit)
{
    std::size_t size = 0;
    for (auto _ : state) {
        std::string out;
        std::optional<agent::FilterPlan> plan;
        if (filter != nullptr) plan = agent::FilterPlan::Make(TheDataSchema(), *filter).value();
        const auto rows = cdb::MakeRowView(*world.store);
        agent::RowSource source(TheDataSchema(), *rows);
        agent::WriteData(TheDataSchema(), source, {defaults, plan ? &*plan : nullptr, {}}, out);
        benchmark::DoNotOptimize(out.data());
        size = out.size();
    }
    state.counters["bytes"] = static_cast<double>(size);
}

void OneByKey(benchmark::State& state)
{
    const auto interfaces = static_cast<int>(state.range(0));
    const SubtreeFilter filter{InSflow({Named(interfaces / 2)})};
    Read(state, Of(interfaces), &filter);
}
BENCHMARK(OneByKey)->Arg(100)->Arg(10'000)->Arg(100'000);

void OneByKeyAndAnotherLeaf(benchmark::State& state)
{
    const auto interfaces = static_cast<int>(state.range(0));
    FilterNode one = Named(interfaces / 2);
    one.children.push_back(Node("sampling-rate", {}, "512"));
    const SubtreeFilter filter{InSflow({one})};
    Read(state, Of(interfaces), &filter);
}
BENCHMARK(OneByKeyAndAnotherLeaf)->Arg(100)->Arg(10'000)->Arg(100'000);

void OneLeafOfOne(benchmark::State& state)
{
    const auto interfaces = static_cast<int>(state.range(0));
    FilterNode one = Named(interfaces / 2);
    one.children.push_back(Node("sampling-rate"));
    const SubtreeFilter filter{InSflow({one})};
    Read(state, Of(interfaces), &filter);
}
BENCHMARK(OneLeafOfOne)->Arg(100)->Arg(10'000)->Arg(100'000);

void OneReferenceOfOne(benchmark::State& state)
{
    const auto interfaces = static_cast<int>(state.range(0));
    FilterNode one = Named(0);
    one.children.push_back(Node("flow-sampling-collector", {Node("name", {}, "c1")}));
    const SubtreeFilter filter{InSflow({one})};
    Read(state, Of(interfaces), &filter);
}
BENCHMARK(OneReferenceOfOne)->Arg(100)->Arg(10'000)->Arg(100'000);

void ThousandNamedTogether(benchmark::State& state)
{
    const SubtreeFilter filter = Thousand(true);
    Read(state, Of(kMany), &filter);
}
BENCHMARK(ThousandNamedTogether)->Unit(benchmark::kMillisecond);

void ThousandNamedApart(benchmark::State& state)
{
    const SubtreeFilter filter = Thousand(false);
    Read(state, Of(kMany), &filter);
}
BENCHMARK(ThousandNamedApart)->Unit(benchmark::kMillisecond);

void Everything(benchmark::State& state) { Read(state, Of(kMany), nullptr); }
BENCHMARK(Everything)->Unit(benchmark::kMillisecond);

void EverythingWithDefaults(benchmark::State& state)
{
    Read(state, Of(kMany), nullptr, agent::Defaults::kReportAll);
}
BENCHMARK(EverythingWithDefaults)->Unit(benchmark::kMillisecond);

void NamesOfAll(benchmark::State& state)
{
    const SubtreeFilter filter{InSflow({Node("interface", {Node("name")})})};
    Read(state, Of(kMany), &filter);
}
BENCHMARK(NamesOfAll)->Unit(benchmark::kMillisecond);

void OneReferenceOfAll(benchmark::State& state)
{
    const SubtreeFilter filter{
        InSflow({Node("interface", {Node("flow-sampling-collector", {Node("name", {}, "c1")})})})};
    Read(state, Of(kMany), &filter);
}
BENCHMARK(OneReferenceOfAll)->Unit(benchmark::kMillisecond);

void AllThatHaveAValue(benchmark::State& state)
{
    const SubtreeFilter filter{InSflow({Node("interface", {Node("sampling-rate", {}, "513")})})};
    Read(state, Of(kMany), &filter);
}
BENCHMARK(AllThatHaveAValue)->Unit(benchmark::kMillisecond);

void Print(benchmark::State& state)
{
    const agent::Tree tree = Of(kMany).Parsed();
    for (auto _ : state) {
        char* text = nullptr;
        lyd_print_mem(&text, tree.get(), LYD_XML, LYD_PRINT_WITHSIBLINGS | LYD_PRINT_SHRINK);
        benchmark::DoNotOptimize(text);
        std::free(text);
    }
}
BENCHMARK(Print)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
