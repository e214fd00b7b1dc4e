#include <libyang/libyang.h>

#include <cstdlib>
#include <memory>
#include <string_view>
#include <variant>

#include "agent/data_writer.h"
#include "agent/errors.h"
#include "agent/operations.h"
#include "agent/state_as_tree.h"
#include "netconf/xml.h"

namespace agent {
namespace {

constexpr std::string_view kMonitoring = "urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring";

std::variant<Defaults, netconf::RpcError> DefaultsOf(const Request& request)
{
    const std::string_view mode = ChildText(request.Operation(), "with-defaults");
    if (mode.empty() || mode == "explicit") return Defaults::kExplicit;
    if (mode == "trim") return Defaults::kTrim;
    if (mode == "report-all") return Defaults::kReportAll;
    return MakeError(
        Layer::kProtocol, cdb::ErrorTag::kInvalidValue,
        "with-defaults \"" + std::string(mode) + "\" is not offered; use explicit, trim or report-all",
        {{"bad-element", "with-defaults"}});
}

/// The only child of <source> or <target>.
std::string_view DatastoreName(const lyd_node* operation, std::string_view role)
{
    const lyd_node* named = lyd_child(ChildNamed(operation, role));
    return named == nullptr ? std::string_view{} : std::string_view(named->schema->name);
}

/// Either the YANG text of a module that is there, or null.
const lys_module* FindModule(const ly_ctx* context, std::string_view name, std::string_view version)
{
    const std::string module(name);
    if (version.empty()) return ly_ctx_get_module_implemented(context, module.c_str());
    return ly_ctx_get_module(context, module.c_str(), std::string(version).c_str());
}

}  // namespace

void Operations::Get(const RequestPtr& request)
{
    const auto defaults = DefaultsOf(*request);
    if (const auto* error = std::get_if<netconf::RpcError>(&defaults)) return request->Refuse(*error);
    m_services.state.Collect(
        request->Filter(), [this, request, mode = std::get<Defaults>(defaults)](const CollectedState& state) {
            const Tree tree = StateAsTree(m_services.schema.Context(), *state.data);
            request->Data(
                [&](std::string& out) {
                    WriteData(m_services.datastore.Running(), request->Filter(), mode, out);
                    WriteData(tree.get(), request->Filter(), mode, out);
                },
                {}, state.warnings);
        });
}

void Operations::GetConfig(const RequestPtr& request)
{
    const auto defaults = DefaultsOf(*request);
    if (const auto* error = std::get_if<netconf::RpcError>(&defaults)) return request->Refuse(*error);
    const lyd_node* tree = DatastoreName(request->Operation(), "source") == "candidate"
                               ? m_services.datastore.Candidate()
                               : m_services.datastore.Running();
    request->Data(
        [&](std::string& out) { WriteData(tree, request->Filter(), std::get<Defaults>(defaults), out); });
}

void Operations::GetSchema(const RequestPtr& request)
{
    const lyd_node* operation = request->Operation();
    const std::string_view format = ChildText(operation, "format");
    const std::string_view name = ChildText(operation, "identifier");
    const bool isYang = format.empty() || format == "yang" || format.ends_with(":yang");
    const lys_module* module = FindModule(m_services.schema.Context(), name, ChildText(operation, "version"));
    char* text = nullptr;
    if (!isYang || module == nullptr || lys_print_mem(&text, module, LYS_OUT_YANG, 0) != LY_SUCCESS)
        return request->Refuse(
            MakeError(Layer::kApplication, cdb::ErrorTag::kInvalidValue,
                      "there is no module \"" + std::string(name) + "\" of that version and format",
                      {{"bad-element", isYang ? "identifier" : "format"}}));
    const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
    request->Data([text](std::string& out) { netconf::AppendEscaped(out, text); }, kMonitoring);
}

}  // namespace agent
