#include "manager/configured.h"

#include <utility>

#include <nlohmann/json.hpp>

namespace manager {
namespace {

using Json = nlohmann::json;

constexpr const char* kRoot = "switch-oam-sflow:sflow";

/// The entries of a list; an empty list where there is none.
const Json& Entries(const Json& parent, const char* list)
{
    static const Json kNone = Json::array();
    const auto found = parent.find(list);
    return found == parent.end() ? kNone : *found;
}

std::string NameOf(const Json& entry) { return entry.at("name").get<std::string>(); }

Configured::Interface ReadInterface(const Json& entry)
{
    Configured::Interface interface;
    interface.ownRate = entry.contains("sampling-rate");
    for (const auto& [kind, list] : {std::pair{Kind::kFlow, "flow-sampling-collector"},
                                     std::pair{Kind::kCounter, "counter-sampling-collector"}})
        for (const Json& collector : Entries(entry, list))
            interface.collectors[static_cast<std::size_t>(kind)].push_back(NameOf(collector));
    return interface;
}

}  // namespace

std::optional<Configured> ReadConfigured(std::string_view json)
{
    try {
        const Json document = Json::parse(json);
        const Json& sflow = document.at(kRoot);
        if (!sflow.is_object()) return std::nullopt;
        Configured configured;
        for (const Json& entry : Entries(sflow, "collector"))
            configured.collectors[NameOf(entry)].enabled = entry.value("enabled", true);
        for (const Json& entry : Entries(sflow, "interface"))
            configured.interfaces[NameOf(entry)] = ReadInterface(entry);
        return configured;
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

}  // namespace manager
