// SPDX-License-Identifier: Apache-2.0
#include "netconf/requests.h"

#include "netconf/names.h"
#include "netconf/xml.h"

namespace netconf {
namespace {

constexpr std::string_view kSystem = "urn:switch:yang:switch-system";
constexpr std::string_view kPrivate = "urn:switch:yang:switch-private-candidate";

void AppendFilter(std::string& out, std::optional<std::string_view> filter)
{
    if (!filter) return;
    out.append("<filter type=\"subtree\">").append(*filter).append("</filter>");
}

std::string WithDatastore(std::string_view operation, std::string_view role, std::string_view datastore)
{
    std::string out;
    out.append("<").append(operation).append("><").append(role).append("><");
    out.append(Escaped(datastore)).append("/></").append(role).append("></").append(operation).append(">");
    return out;
}

void AppendLeaf(std::string& out, std::string_view name, std::string_view value)
{
    if (!value.empty()) AppendElement(out, name, value);
}

void AppendComment(std::string& out, std::string_view comment)
{
    if (comment.empty()) return;
    out.append("<comment xmlns=\"").append(kSystem).append("\">");
    AppendEscaped(out, comment);
    out.append("</comment>");
}

/// An operation of the system's module, with one leaf.
std::string OfSystem(const std::string& name, const std::string& leaf, std::string_view value)
{
    std::string out = "<" + name + " xmlns=\"" + std::string(kSystem) + "\">";
    AppendElement(out, leaf, value);
    return out + "</" + name + ">";
}

std::string OfHistory(std::string_view operation, const std::string& content)
{
    const std::string name(operation);
    return "<" + name + " xmlns=\"" + std::string(kHistoryNamespace) + "\">" + content + "</" + name + ">";
}

std::string MomentXml(const Moment& moment)
{
    const bool isNumber = moment.text.find_first_not_of("0123456789") == std::string::npos;
    std::string content;
    AppendElement(content, moment.isCommit ? "commit" : isNumber ? "back" : "checkpoint", moment.text);
    return content;
}

}  // namespace

std::string Get(std::optional<std::string_view> filter)
{
    std::string out = "<get>";
    AppendFilter(out, filter);
    return out + "</get>";
}

std::string GetConfig(std::string_view source, std::optional<std::string_view> filter,
                      std::string_view withDefaults)
{
    std::string out = "<get-config><source><" + Escaped(source) + "/></source>";
    AppendFilter(out, filter);
    if (!withDefaults.empty())
        out.append("<with-defaults xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-with-defaults\">")
            .append(Escaped(withDefaults))
            .append("</with-defaults>");
    return out + "</get-config>";
}

std::string GetTouched(std::string_view source)
{
    std::string out = "<get-config><source><" + Escaped(source) + "/></source><touched-only xmlns=\"";
    return out.append(kSystem).append("\"/></get-config>");
}

std::string EditConfig(std::string_view config, const EditOptions& options)
{
    std::string out = "<edit-config><target><candidate/></target>";
    AppendLeaf(out, "default-operation", options.defaultOperation);
    AppendLeaf(out, "test-option", options.testOption);
    AppendLeaf(out, "error-option", options.errorOption);
    return out.append("<config>").append(config).append("</config></edit-config>");
}

std::string Commit(std::string_view comment)
{
    std::string out = "<commit>";
    AppendComment(out, comment);
    return out + "</commit>";
}

std::string CommitConfirmed(const Confirmed& options)
{
    std::string out = "<commit><confirmed/>";
    AppendLeaf(out, "confirm-timeout", options.timeout);
    AppendLeaf(out, "persist", options.persist);
    AppendLeaf(out, "persist-id", options.persistId);
    AppendComment(out, options.comment);
    return out + "</commit>";
}

std::string ConfirmCommit(std::string_view persistId)
{
    std::string content;
    AppendLeaf(content, "persist-id", persistId);
    return OfHistory("confirm-commit", content);
}

std::string CancelCommit(std::string_view persistId)
{
    std::string out = "<cancel-commit>";
    AppendLeaf(out, "persist-id", persistId);
    return out + "</cancel-commit>";
}

std::string Validate(std::string_view source) { return WithDatastore("validate", "source", source); }
std::string DiscardChanges() { return "<discard-changes/>"; }
std::string Lock(std::string_view target) { return WithDatastore("lock", "target", target); }
std::string Unlock(std::string_view target) { return WithDatastore("unlock", "target", target); }
std::string CloseSession() { return "<close-session/>"; }

std::string KillSession(std::uint32_t id)
{
    return "<kill-session><session-id>" + std::to_string(id) + "</session-id></kill-session>";
}

std::string RollBack(const Moment& moment) { return OfHistory("rollback", MomentXml(moment)); }

std::string CompareWith(const Moment& moment) { return OfHistory("compare", MomentXml(moment)); }

std::string CommitChanges(std::string_view commit)
{
    return OfHistory("commit-changes", MomentXml({std::string(commit), true}));
}

std::string SetCheckpoint(std::string_view name, bool replace)
{
    std::string content;
    AppendElement(content, "name", name);
    return OfHistory("checkpoint", content + (replace ? "<replace/>" : ""));
}

std::string DeleteCheckpoint(std::string_view name)
{
    std::string content;
    AppendElement(content, "name", name);
    return OfHistory("delete-checkpoint", content);
}

std::string OpenPrivateCandidate()
{
    return "<open-private-candidate xmlns=\"" + std::string(kPrivate) + "\"/>";
}

std::string ClosePrivateCandidate()
{
    return "<close-private-candidate xmlns=\"" + std::string(kPrivate) + "\"/>";
}

std::string UpdateCandidate(bool takeRunning)
{
    std::string out = "<update-candidate xmlns=\"" + std::string(kPrivate) + "\">";
    if (takeRunning) AppendElement(out, "on-conflict", "running");
    return out + "</update-candidate>";
}

std::string HaTransition(std::string_view role) { return OfSystem("ha-transition", "role", role); }

std::string SflowClearStatistics()
{
    return std::string("<sflow-clear-statistics xmlns=\"").append(kSystem).append("\"/>");
}

std::string SflowTestCollector(std::string_view collector)
{
    return OfSystem("sflow-test-collector", "collector", collector);
}

std::string GetLog(unsigned lines, std::string_view process)
{
    std::string out = std::string("<get-log xmlns=\"").append(kSystem).append("\">");
    AppendElement(out, "lines", std::to_string(lines));
    AppendLeaf(out, "process", process);
    return out + "</get-log>";
}

std::string SflowTopTalkers(std::string_view interface)
{
    return OfSystem("sflow-top-talkers", "interface", interface);
}

std::string SflowResync() { return std::string("<sflow-resync xmlns=\"").append(kSystem).append("\"/>"); }

std::string Backup(std::string_view file) { return OfSystem("backup", "file", file); }

std::string CreateSubscription(std::string_view startTime)
{
    std::string out = "<create-subscription xmlns=\"" + std::string(kNotificationNamespace) + "\">";
    AppendLeaf(out, "startTime", startTime);
    return out + "</create-subscription>";
}

}  // namespace netconf
