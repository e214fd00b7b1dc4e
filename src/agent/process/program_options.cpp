// SPDX-License-Identifier: Apache-2.0
#include "agent/process/program_options.h"

#include <charconv>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/directories.h"
#include "ipc/trust.h"

namespace agent {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kMinHistory = 4096;
constexpr std::uint64_t kMinMap = std::uint64_t{1} << 20;
constexpr std::uint64_t kMaxSize = std::uint64_t{1} << 40;
/// A smaller bound would refuse what swcli sends.
constexpr std::uint64_t kMinMessage = std::uint64_t{64} << 10;
constexpr std::uint64_t kMinElements = 1000;
constexpr std::uint64_t kMinUnread = std::uint64_t{1} << 20;
/// The tree of a message takes some ten times its length in memory.
constexpr std::uint64_t kMaxMessage = std::uint64_t{1} << 30;
constexpr const char* kAccessFile = "/etc/sflow-switch/access.xml";

/// A day in milliseconds; enough for the other units and counts.
constexpr std::uint64_t kMaxNumber = 86'400'000;

std::uint64_t Number(std::string_view option, std::string_view text, std::uint64_t least = 1,
                     std::uint64_t most = kMaxNumber)
{
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size() || number < least || number > most)
        throw UsageError(std::string(option) + " needs a number from " + std::to_string(least) + " to " +
                         std::to_string(most) + ", not \"" + std::string(text) + "\"");
    return number;
}

/// A number of bytes; a K, M or G behind it multiplies it by 1024, 1024^2 or 1024^3.
std::uint64_t Size(std::string_view option, std::string_view text, std::uint64_t least, std::uint64_t most)
{
    std::uint64_t number = 0;
    const char* last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, number);
    const std::string_view unit(end, static_cast<std::size_t>(last - end));
    const unsigned shift = unit == "K" ? 10 : unit == "M" ? 20 : unit == "G" ? 30 : 0;
    const bool known = unit.empty() || shift != 0;
    if (error != std::errc{} || !known || number > most >> shift || number << shift < least)
        throw UsageError(std::string(option) + " needs a size from " + std::to_string(least) + " bytes to " +
                         std::to_string(most >> 30) + "G, such as 64M, not \"" + std::string(text) + "\"");
    return number << shift;
}

using Setter = void (*)(ProgramOptions& options, const std::string& name, const std::string& value);

template <fs::path ProgramOptions::*member>
void SetPath(ProgramOptions& options, const std::string& /*name*/, const std::string& value)
{
    options.*member = value;
}

template <std::string ProgramOptions::*member>
void SetText(ProgramOptions& options, const std::string& /*name*/, const std::string& value)
{
    options.*member = value;
}

template <auto member>
void SetTime(ProgramOptions& options, const std::string& name, const std::string& value)
{
    using Time = std::remove_reference_t<decltype(options.*member)>;
    options.*member = Time(Number(name, value));
}

template <std::size_t ProgramOptions::*member, std::uint64_t least, std::uint64_t most = kMaxSize>
void SetSize(ProgramOptions& options, const std::string& name, const std::string& value)
{
    options.*member = Size(name, value, least, most);
}

void SetHistoryDays(ProgramOptions& options, const std::string& name, const std::string& value)
{
    options.historyDays = static_cast<std::uint32_t>(Number(name, value));
}

template <std::size_t ProgramOptions::*member, std::uint64_t least = 1, std::uint64_t most = kMaxNumber>
void SetCount(ProgramOptions& options, const std::string& name, const std::string& value)
{
    options.*member = Number(name, value, least, most);
}

/// 0 turns it off.
void SetIdleTimeout(ProgramOptions& options, const std::string& name, const std::string& value)
{
    options.idleTimeout = std::chrono::seconds(value == "0" ? 0 : Number(name, value));
}

/// A group that is named must exist; only the default one may be missing.
template <std::string ProgramOptions::*member>
void SetGroup(ProgramOptions& options, const std::string& name, const std::string& value)
{
    if (!value.empty() && !ipc::FindGroup(value))
        throw UsageError(name + ": there is no group \"" + value + "\" on this machine");
    options.*member = value;
}

void AddAllowed(ProgramOptions& options, const std::string& name, const std::string& value)
{
    const std::string problem = value.empty() ? "" : ipc::Trust("cdbd").Allow(value);
    if (!problem.empty()) throw UsageError(name + ": " + problem);
    options.allow.push_back(value);
}

constexpr std::pair<std::string_view, Setter> kSetters[] = {
    {"--init", &SetPath<&ProgramOptions::initFile>},
    {"--run-dir", &SetPath<&ProgramOptions::runDirectory>},
    {"--state-dir", &SetPath<&ProgramOptions::stateDirectory>},
    {"--yang-dir", &SetPath<&ProgramOptions::yangDirectory>},
    {"--access", &SetPath<&ProgramOptions::accessFile>},
    {"--admin-group", &SetGroup<&ProgramOptions::adminGroup>},
    {"--switch-group", &SetGroup<&ProgramOptions::switchGroup>},
    {"--allow", &AddAllowed},
    {"--ack-timeout", &SetTime<&ProgramOptions::ackTimeout>},
    {"--callpoint-timeout", &SetTime<&ProgramOptions::callpointTimeout>},
    {"--hello-timeout", &SetTime<&ProgramOptions::helloTimeout>},
    {"--idle-timeout", &SetIdleTimeout},
    {"--history-limit", &SetCount<&ProgramOptions::historyLimit>},
    {"--history-bytes", &SetSize<&ProgramOptions::historyBytes, kMinHistory>},
    {"--history-days", &SetHistoryDays},
    {"--map-size", &SetSize<&ProgramOptions::mapSize, kMinMap>},
    {"--export", &SetPath<&ProgramOptions::exportFile>},
    {"--import", &SetPath<&ProgramOptions::importFile>},
    {"--max-sessions", &SetCount<&ProgramOptions::maxSessions>},
    {"--max-sessions-per-user", &SetCount<&ProgramOptions::maxSessionsPerUser>},
    {"--max-message", &SetSize<&ProgramOptions::maxMessage, kMinMessage, kMaxMessage>},
    {"--max-elements", &SetCount<&ProgramOptions::maxElements, kMinElements>},
    {"--max-filter", &SetCount<&ProgramOptions::maxFilter>},
    {"--max-unread", &SetSize<&ProgramOptions::maxUnread, kMinUnread>},
};

void Set(ProgramOptions& options, const std::string& name, const std::string& value)
{
    for (const auto& [known, set] : kSetters)
        if (known == name) return set(options, name, value);
    throw UsageError("there is no option " + name);
}

}  // namespace

ProgramOptions ParseOptions(int argc, const char* const* argv, const fs::path& program,
                            const base::Variables& variables)
{
    ProgramOptions options;
    options.runDirectory = base::RunDirectory(variables);
    options.stateDirectory = base::StateDirectory(variables);
    options.adminGroup = ipc::kAdminGroup;
    options.switchGroup = ipc::kSwitchGroup;
    std::error_code ignored;  // a file that can't be examined counts as missing
    if (fs::exists(kAccessFile, ignored)) options.accessFile = kAccessFile;
    options.yangDirectory = base::YangDirectory(program, variables("SFLOW_YANG_DIR"));
    for (int i = 1; i < argc; ++i) {
        std::string name = argv[i];
        if (name == "--help" || name == "-h") {
            options.help = true;
        } else if (name == "--version") {
            options.version = true;
        } else if (name == "--check") {
            options.check = true;
        } else if (const std::size_t equals = name.find('='); equals != std::string::npos) {
            Set(options, name.substr(0, equals), name.substr(equals + 1));
        } else if (!name.starts_with("--")) {
            throw UsageError("unexpected argument " + name);
        } else {
            if (i + 1 == argc) Set(options, name, "");
            if (i + 1 == argc || *argv[i + 1] == '\0') throw UsageError(name + " needs a value");
            Set(options, name, argv[++i]);
        }
    }
    const int tasks = int{!options.initFile.empty()} + int{!options.exportFile.empty()} +
                      int{!options.importFile.empty()} + int{options.check};
    if (tasks > 1) throw UsageError("--init, --import, --export and --check go one at a time");
    return options;
}

std::string UsageText()
{
    return "usage: cdbd [OPTION]...\n"
           "       cdbd --init FILE | --import FILE | --export FILE | --check [OPTION]...\n"
           "\n"
           "The configuration database: keeps the switch's configuration, serves it to operators\n"
           "(NETCONF) and to the switch's processes.\n"
           "\n"
           "  --init FILE             load a first configuration (RFC 7951 JSON or XML) into an empty\n"
           "                          store, and end\n"
           "  --import FILE           make a file's configuration the whole one, in one commit; makes the\n"
           "                          store where there is none, and end\n"
           "  --export FILE           write the running configuration to a file that ends in .json or .xml,\n"
           "                          or to - as JSON; the switch may be running; and end\n"
           "  --check                 read all of a stopped switch's store, say what is there or what is\n"
           "                          damaged, and end\n"
           "  --run-dir DIR           where the sockets are ($SFLOW_RUN_DIR, /run/sflow-switch)\n"
           "  --state-dir DIR         where the store is ($SFLOW_STATE_DIR, /var/lib/sflow-switch)\n"
           "  --yang-dir DIR          where the YANG modules are ($SFLOW_YANG_DIR)\n"
           "  --ack-timeout MS        how long a process may take for one commit (10000)\n"
           "  --callpoint-timeout MS  how long a callpoint may go without any answer (5000)\n"
           "  --history-limit N       how many commits are remembered (500)\n"
           "  --history-days N        how many days they are remembered (no limit)\n"
           "  --history-bytes SIZE    how large what undoes them may be, at most a quarter of --map-size "
           "(64M)\n"
           "  --map-size SIZE         how large the store may become (1G)\n"
           "  --access FILE           the rules of access control (/etc/sflow-switch/access.xml where\n"
           "                          that is there, else operators may do all and others may read)\n"
           "  --admin-group GROUP     whom netconf.sock is for (sflow-admin)\n"
           "  --switch-group GROUP    whom cdb.sock and the store are for (sflow-switch)\n"
           "  --allow ROLE=WHO,...    who else than root and our own user may, on cdb.sock, take the role\n"
           "                          subscribe, callpoint, state or faults: users and @groups\n"
           "                          (the switch group)\n"
           "  --max-sessions N        how many NETCONF sessions at once (128)\n"
           "  --max-sessions-per-user N\n"
           "                          how many of them one user may have, root aside (64)\n"
           "  --max-message SIZE      how long one message of a NETCONF client may be (64M)\n"
           "  --max-elements N        how many elements it may have (2000000)\n"
           "  --max-filter N          how many of them in a filter (32768)\n"
           "  --max-unread SIZE       how much memory long answers may take that clients have not read\n"
           "                          yet, all sessions together (256M)\n"
           "  --hello-timeout SECONDS how long a NETCONF client may take for its hello (30)\n"
           "  --idle-timeout SECONDS  how long a session may be without a request (0: for ever)\n"
           "  --help, --version       say so, and end\n"
           "\n"
           "environment:\n"
           "  SFLOW_LOG               log file, or - for standard error (-)\n"
           "  SFLOW_LOG_LEVEL         lowest level written: 10 debug, 11 info, 12 notice, 13 error (12)\n";
}

std::string VersionText() { return "cdbd " SFLOW_VERSION "\n"; }

}  // namespace agent
