// SPDX-License-Identifier: Apache-2.0
#include "agent/process/program_options.h"

#include "base/directories.h"
#include "base/number.h"
#include "base/options/options.h"
#include "base/user.h"
#include "ipc/trust.h"

namespace agent {
namespace {

namespace fs = std::filesystem;
using base::UsageError;

constexpr std::uint64_t kMaxSize = std::uint64_t{1} << 40;
/// A smaller bound would refuse what swcli sends.
constexpr std::uint64_t kMinMessage = std::uint64_t{64} << 10;
/// The tree of a message takes some ten times its length in memory.
constexpr std::uint64_t kMaxMessage = std::uint64_t{1} << 30;
constexpr const char* kAccessFile = "/etc/sflow-switch/access.xml";

/// A day in milliseconds; enough for the other units and counts.
constexpr std::uint64_t kMaxNumber = 86'400'000;

std::uint64_t Number(const std::string& option, const std::string& text, std::uint64_t least)
{
    const auto number = base::ToNumber<std::uint64_t>(text);
    if (!number || *number < least || *number > kMaxNumber)
        throw UsageError(option + " needs a number from " + std::to_string(least) + " to " +
                         std::to_string(kMaxNumber) + ", not \"" + text + "\"");
    return *number;
}

/// "MS", or "NAME=MS". A name may have any character: the last "=" separates.
void AddAckTime(AckTimes& times, const std::string& option, const std::string& text)
{
    const auto at = text.rfind('=');
    const bool general = at == std::string::npos;
    if (at == 0) throw UsageError(option + " needs the name of a process before \"=\", not \"" + text + "\"");
    const std::chrono::milliseconds time(Number(option, general ? text : text.substr(at + 1), 1));
    (general ? times.general : times.ofProcess[text.substr(0, at)]) = time;
}

/// The rows of cdbd's options: each names its member, and what the help text says of it.
class Rows {
public:
    explicit Rows(ProgramOptions& to) : m_options(to.help, to.version) {}

    template <typename Take>
    void Add(const char* name, const char* value, const char* help, Take take)
    {
        m_options.Add(name, value, help, [take, option = "--" + std::string(name)](const std::string& text) {
            if (text.empty()) throw UsageError("option " + option + " needs a value");
            take(option, text);
        });
    }
    void Path(const char* name, const char* value, fs::path& to, const char* help)
    {
        Add(name, value, help, [&to](const auto&, const std::string& text) { to = text; });
    }
    template <typename To>
    void Count(const char* name, const char* value, To& to, const char* help, std::uint64_t least = 1)
    {
        Add(name, value, help, [&to, least](const std::string& option, const std::string& text) {
            to = static_cast<To>(Number(option, text, least));
        });
    }
    void Size(const char* name, std::size_t& to, std::uint64_t least, std::uint64_t most, const char* help)
    {
        Add(name, "SIZE", help, [&to, least, most](const std::string& option, const std::string& text) {
            to = base::ToSize(text, least, most,
                              option + " needs a size from " + std::to_string(least) + " bytes to " +
                                  std::to_string(most >> 30) + "G, such as 64M, not \"" + text + "\"");
        });
    }
    /// A group that is named must exist; only the default one may be missing.
    void Group(const char* name, std::string& to, const char* help)
    {
        Add(name, "GROUP", help, [&to](const std::string& option, const std::string& text) {
            if (!base::FindGroup(text))
                throw UsageError(option + ": there is no group \"" + text + "\" on this machine");
            to = text;
        });
    }
    void Flag(const char* name, bool& to, const char* help) { m_options.Add(name, help, to); }

    [[nodiscard]] const base::Options& All() const { return m_options; }

private:
    base::Options m_options;
};

Rows RowsFor(ProgramOptions& to)
{
    Rows rows(to);
    rows.Path("init", "FILE", to.initFile,
              "load a first configuration (RFC 7951 JSON or XML) into an empty store, and end");
    rows.Path(
        "import", "FILE", to.importFile,
        "make a file's configuration the whole one, in one commit; makes the store where there is none, "
        "and end");
    rows.Path("export", "FILE", to.exportFile,
              "write the running configuration to a file that ends in .json or .xml, or to - as JSON; the "
              "switch may be running; and end");
    rows.Flag("check", to.check,
              "read all of a stopped switch's store, say what is there or what is damaged, and end");
    rows.Path("run-dir", "DIR", to.runDirectory, "where the sockets are ($SFLOW_RUN_DIR, /run/sflow-switch)");
    rows.Path("state-dir", "DIR", to.stateDirectory,
              "where the store is ($SFLOW_STATE_DIR, /var/lib/sflow-switch)");
    rows.Path("yang-dir", "DIR", to.yangDirectory, "where the YANG modules are ($SFLOW_YANG_DIR)");
    rows.Add(
        "ack-timeout", "[NAME=]MS",
        "how long a process may take for one commit (10000); with NAME, as often as wanted, the process of "
        "that name",
        [&to](const std::string& option, const std::string& text) { AddAckTime(to.ackTimes, option, text); });
    rows.Count("callpoint-timeout", "MS", to.callpointTimeout,
               "how long a callpoint may go without any answer (5000)");
    rows.Count("history-limit", "N", to.historyLimit, "how many commits are remembered (500)");
    rows.Count("history-days", "N", to.historyDays, "how many days they are remembered (no limit)");
    rows.Size("history-bytes", to.historyBytes, 4096, kMaxSize,
              "how large what undoes them may be, at most a quarter of --map-size (64M)");
    rows.Size("map-size", to.mapSize, std::uint64_t{1} << 20, kMaxSize,
              "how large the store may become (1G)");
    rows.Path("access", "FILE", to.accessFile,
              "the rules of access control (/etc/sflow-switch/access.xml where that is there, else operators "
              "may do all and others may read)");
    rows.Group("admin-group", to.adminGroup, "whom netconf.sock is for (sflow-admin)");
    rows.Group("switch-group", to.switchGroup, "whom cdb.sock and the store are for (sflow-switch)");
    rows.Add(
        "allow", "ROLE=WHO,...",
        "who else than root and our own user may, on cdb.sock, take the role subscribe, callpoint, state "
        "or faults: users and @groups (the switch group)",
        [&to](const std::string& option, const std::string& text) {
            if (const std::string problem = ipc::Trust("cdbd").Allow(text); !problem.empty())
                throw UsageError(option + ": " + problem);
            to.allow.push_back(text);
        });
    rows.Count("max-sessions", "N", to.maxSessions, "how many NETCONF sessions at once (128)");
    rows.Count("max-sessions-per-user", "N", to.maxSessionsPerUser,
               "how many of them one user may have, root aside (64)");
    rows.Size("max-message", to.maxMessage, kMinMessage, kMaxMessage,
              "how long one message of a NETCONF client may be (64M)");
    rows.Count("max-elements", "N", to.maxElements, "how many elements it may have (2000000)", 1000);
    rows.Count("max-filter", "N", to.maxFilter, "how many of them in a filter (32768)");
    rows.Size("max-unread", to.maxUnread, std::uint64_t{1} << 20, kMaxSize,
              "how much memory long answers may take that clients have not read yet, all sessions together "
              "(256M)");
    rows.Count("replay-events", "N", to.replayEvents,
               "how many events are kept in memory for subscribers and their replay (10000)");
    rows.Size("replay-bytes", to.replayBytes, std::uint64_t{64} << 10, kMaxSize,
              "how much memory they may take (16M)");
    rows.Count("hello-timeout", "SECONDS", to.helloTimeout,
               "how long a NETCONF client may take for its hello (30)");
    rows.Add("idle-timeout", "SECONDS", "how long a session may be without a request (0: for ever)",
             [&to](const std::string& option, const std::string& text) {
                 to.idleTimeout = std::chrono::seconds(text == "0" ? 0 : Number(option, text, 1));
             });
    rows.Add("metrics", "ADDRESS:PORT", "serve metrics at this loopback address, such as 127.0.0.1:16344",
             [&to](const std::string& option, const std::string& text) {
                 auto address = metrics::ToAddress(text);
                 if (!address) throw UsageError("option " + option + ": \"" + text + "\" " + address.error());
                 to.metrics = *std::move(address);
             });
    return rows;
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
    RowsFor(options).All().Read({argv + 1, argv + argc});
    const int tasks = int{!options.initFile.empty()} + int{!options.exportFile.empty()} +
                      int{!options.importFile.empty()} + int{options.check};
    if (tasks > 1) throw UsageError("--init, --import, --export and --check go one at a time");
    return options;
}

std::string UsageText()
{
    ProgramOptions unused;
    return "usage: cdbd [OPTION]...\n"
           "       cdbd --init FILE | --import FILE | --export FILE | --check [OPTION]...\n"
           "\n"
           "The configuration database: keeps the switch's configuration, serves it to operators\n"
           "(NETCONF) and to the switch's processes.\n"
           "\n" +
           RowsFor(unused).All().Text() + base::EnvironmentText();
}

}  // namespace agent
