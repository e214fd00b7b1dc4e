// SPDX-License-Identifier: Apache-2.0
// What messages cost before they are a request, by their shape: read (or refused) as the agent does it,
// and, with --benchmark_filter=parser, handed to libyang's parser as they are. Some of those take
// seconds. Besides, what the pass adds to a large configuration.

#include <benchmark/benchmark.h>
#include <libyang/libyang.h>

#include <functional>
#include <string>
#include <variant>

#include "agent/netconf/rpc.h"
#include "cdb/schema/schema.h"
#include "guard/data_file.h"

namespace {

const cdb::Schema& TheSchema()
{
    static const auto schema = cdb::Schema::Load(SFLOW_BENCH_YANG_DIR);
    return *schema;
}

const guard::SchemaIndex& TheIndex()
{
    static const guard::SchemaIndex index(TheSchema().Context());
    return index;
}

std::string InRpc(const std::string& operation, const std::string& attributes = "")
{
    return "<rpc xmlns=\"urn:ietf:params:xml:ns:netconf:base:1.0\" message-id=\"1\" " + attributes + ">" +
           operation + "</rpc>";
}

std::string Sflow(const std::string& inner)
{
    return "<config xmlns=\"urn:switch:yang:switch-config\"><oam "
           "xmlns=\"urn:switch:yang:switch-oam-sflow\"><sflow>" +
           inner + "</sflow></oam></config>";
}

std::string InConfig(const std::string& config)
{
    return InRpc("<edit-config><target><candidate/></target><config>" + config + "</config></edit-config>");
}

/// `count` times `before`, the number where it says so, `after`.
std::string Times(int count, const std::string& before, const std::string& after = "", bool numbered = false)
{
    std::string text;
    for (int i = 0; i < count; ++i) text += before + (numbered ? std::to_string(i) : "") + after;
    return text;
}

std::string Numbered(int count, const std::string& before, const std::string& after)
{
    return Times(count, before, after, true);
}

std::string InCollector(const std::string& inner)
{
    return InConfig(Sflow("<collector><name>c1</name>" + inner + "</collector>"));
}

struct Shape {
    const char* name;
    std::function<std::string()> make;
};

const Shape kShapes[] = {
    {"unknown_40000", [] { return InConfig(Times(40'000, "<a/>")); }},
    {"key_10000",
     [] { return InConfig(Sflow("<collector>" + Times(10'000, "<name>c1</name>") + "</collector>")); }},
    {"leaf_10000", [] { return InCollector(Times(10'000, "<port>1</port>")); }},
    {"rpc_attributes_5000",
     [] { return InRpc("<commit/>", "xmlns:p=\"urn:p\" " + Numbered(5'000, "p:a", "=\"1\" ")); }},
    {"namespaces_20000", [] { return InConfig("<a " + Numbered(20'000, "xmlns:n", "=\"urn:n\" ") + "/>"); }},
    {"text_16MB", [] { return InCollector("<ip>" + std::string(std::size_t{16} << 20, '1') + "</ip>"); }},
    {"no_key_40000", [] { return InConfig(Sflow(Times(40'000, "<collector/>"))); }},
    {"bad_key_20000", [] { return InConfig(Sflow(Times(20'000, "<collector><name>%</name></collector>"))); }},
    {"bad_keys_20000",
     [] { return InConfig(Sflow(Numbered(20'000, "<collector><name>%", "</name></collector>"))); }},
    {"bad_leaf_20000",
     [] {
         return InConfig(Sflow(Numbered(20'000, "<collector><name>c", "</name><port>x</port></collector>")));
     }},
    {"same_entry_25000",
     [] { return InConfig(Sflow(Times(25'000, "<collector><name>c1</name></collector>"))); }},
    {"same_entry_inside_25000",
     [] {
         return InConfig(
             Sflow("<interface><name>e</name>" +
                   Times(18'000, "<flow-sampling-collector><name>c1</name></flow-sampling-collector>") +
                   "</interface>"));
     }},
    {"entries_20000",
     [] { return InConfig(Sflow(Numbered(20'000, "<collector><name>c", "</name></collector>"))); }},
    {"parameters_40000", [] { return InRpc("<commit>" + Times(40'000, "<a/>") + "</commit>"); }},
    {"comments_100000", [] { return InConfig(Times(100'000, "<!---->")); }},
    {"instructions_100000", [] { return InConfig(Times(100'000, "<?a b?>")); }},
    {"references_150000", [] { return InCollector("<ip>" + Times(30'000, "&#x31;") + "</ip>"); }},
    {"pieces_250000", [] { return InCollector("<ip>" + Times(65'000, "1\n") + "</ip>"); }},
    {"filter_60000", [] { return InRpc("<get><filter>" + Times(60'000, "<a/>") + "</filter></get>"); }},
    {"filter_attributes",
     [] {
         return InRpc("<get><filter>" + Times(2'000, "<a " + Numbered(60, "a", "='' ") + "/>") +
                      "</filter></get>");
     }},
};

void Read(benchmark::State& state, const std::string& message)
{
    const auto& index = TheIndex();
    std::size_t refused = 0;
    for (auto _ : state) {
        const auto result = agent::ReadRpc(index, message, true);
        refused += result.index();
        benchmark::DoNotOptimize(&result);
    }
    state.counters["refused"] = refused != 0 ? 1 : 0;
    state.counters["KB"] = static_cast<double>(message.size()) / 1024;
}

void ParseAsItIs(benchmark::State& state, const std::string& message)
{
    const ly_ctx* context = TheSchema().Context();
    for (auto _ : state) {
        ly_in* input = nullptr;
        if (ly_in_new_memory(message.c_str(), &input) != LY_SUCCESS) return state.SkipWithError("memory");
        lyd_node* envelope = nullptr;
        lyd_node* operation = nullptr;
        static_cast<void>(
            lyd_parse_op(context, nullptr, input, LYD_XML, LYD_TYPE_RPC_NETCONF, &envelope, &operation));
        ly_in_free(input, 0);
        lyd_free_all(envelope);
        lyd_free_all(operation);
    }
    state.counters["KB"] = static_cast<double>(message.size()) / 1024;
}

/// The data alone, without values that make no sense let through.
void ParseData(benchmark::State& state, const std::string& text)
{
    for (auto _ : state) {
        lyd_node* tree = nullptr;
        if (lyd_parse_data_mem(TheSchema().Context(), text.c_str(), LYD_XML,
                               LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &tree) != LY_SUCCESS)
            return state.SkipWithError("refused");
        lyd_free_all(tree);
    }
}

/// As `swcli load` sends it: 10,000 interfaces with three collectors each.
std::string Large()
{
    std::string text = Numbered(8, "<collector><name>c", "</name><ip>192.0.2.1</ip></collector>");
    for (int i = 0; i < 10'000; ++i)
        text += "<interface><name>gigabit-ethernet-1/1/" + std::to_string(i) +
                "</name><sampling-rate>512</sampling-rate>"
                "<flow-sampling-collector><name>c1</name></flow-sampling-collector>"
                "<flow-sampling-collector><name>c2</name></flow-sampling-collector>"
                "<counter-sampling-collector><name>c3</name></counter-sampling-collector></interface>";
    return Sflow(text);
}

std::string LargeJson()
{
    std::string text = "{\"switch-config:config\":{\"switch-oam-sflow:oam\":{\"sflow\":{\"interface\":[";
    for (int i = 0; i < 10'000; ++i)
        text += std::string(i == 0 ? "" : ",") + "{\"name\":\"gigabit-ethernet-1/1/" + std::to_string(i) +
                "\",\"sampling-rate\":512,\"flow-sampling-collector\":[{\"name\":\"c1\"},{\"name\":\"c2\"}],"
                "\"counter-sampling-collector\":[{\"name\":\"c3\"}]}";
    return text + "]}}}}";
}

void PassOver(benchmark::State& state, const std::string& text, guard::Format format)
{
    for (auto _ : state)
        if (guard::CheckFile(TheIndex(), text, format)) return state.SkipWithError("refused");
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(text.size()));
}

/// The reading of XML alone, without the schema.
void WellFormed(benchmark::State& state, const std::string& text)
{
    for (auto _ : state)
        if (netconf::CheckXml(text)) return state.SkipWithError("refused");
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(text.size()));
}

}  // namespace

int main(int argc, char** argv)
{
    bool parser = false;
    for (int i = 1; i < argc; ++i)
        parser = parser || std::string(argv[i]).find("parser") != std::string::npos;
    for (const Shape& shape : kShapes) {
        const std::string name(shape.name);
        benchmark::RegisterBenchmark(("read/" + name).c_str(), [message =
                                                                    shape.make()](benchmark::State& state) {
            Read(state, message);
        })->Unit(benchmark::kMillisecond);
        if (parser)
            benchmark::RegisterBenchmark(
                ("parser/" + name).c_str(),
                [message = shape.make()](benchmark::State& state) { ParseAsItIs(state, message); })
                ->Unit(benchmark::kMillisecond)
                ->Iterations(1);
    }
    const auto add = [](const char* name, std::function<void(benchmark::State&)> function) {
        benchmark::RegisterBenchmark(name, std::move(function))->Unit(benchmark::kMillisecond);
    };
    add("large/xml_only", [text = Large()](benchmark::State& state) { WellFormed(state, text); });
    add("large/pass_xml",
        [text = Large()](benchmark::State& state) { PassOver(state, text, guard::Format::kXml); });
    add("large/pass_json",
        [text = LargeJson()](benchmark::State& state) { PassOver(state, text, guard::Format::kJson); });
    add("large/read_edit", [text = InConfig(Large())](benchmark::State& state) { Read(state, text); });
    add("large/parser_edit",
        [text = InConfig(Large())](benchmark::State& state) { ParseAsItIs(state, text); });
    add("large/parser_data", [text = Large()](benchmark::State& state) { ParseData(state, text); });
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
