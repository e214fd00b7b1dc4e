#include "agent/program_options.h"

#include <charconv>
#include <cstdint>
#include <string_view>
#include <vector>

namespace agent {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kLeastHistory = 4096;
constexpr std::uint64_t kLeastMap = std::uint64_t{1} << 20;
constexpr const char* kInstalledYang = "/usr/share/sflow-switch/yang";

/// A number from 1 on; times in milliseconds, up to a day.
std::uint64_t Number(std::string_view option, std::string_view text)
{
    constexpr std::uint64_t kMost = 86'400'000;
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size() || number == 0 || number > kMost)
        throw UsageError(std::string(option) + " needs a number from 1 to " + std::to_string(kMost) +
                         ", not \"" + std::string(text) + "\"");
    return number;
}

/// A number of bytes, with K, M or G behind it for so many times 1024.
std::uint64_t Size(std::string_view option, std::string_view text, std::uint64_t least)
{
    constexpr std::uint64_t kMost = std::uint64_t{1} << 40;
    std::uint64_t number = 0;
    const char* last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, number);
    const std::string_view unit(end, static_cast<std::size_t>(last - end));
    const unsigned shift = unit == "K" ? 10 : unit == "M" ? 20 : unit == "G" ? 30 : 0;
    const bool known = unit.empty() || shift != 0;
    if (error != std::errc{} || !known || number > kMost >> shift || number << shift < least)
        throw UsageError(std::string(option) + " needs a size from " + std::to_string(least) +
                         " bytes to 1024G, such as 64M, not \"" + std::string(text) + "\"");
    return number << shift;
}

fs::path YangDirectory(const fs::path& program)
{
    const fs::path beside = (program.parent_path() / "../../yang").lexically_normal();
    std::error_code ignored;  // a directory that can't be looked at is not used
    return fs::is_directory(beside, ignored) ? beside : fs::path(kInstalledYang);
}

void Set(ProgramOptions& options, const std::string& name, const std::string& value)
{
    if (name == "--init")
        options.initFile = value;
    else if (name == "--run-dir")
        options.runDirectory = value;
    else if (name == "--state-dir")
        options.stateDirectory = value;
    else if (name == "--yang-dir")
        options.yangDirectory = value;
    else if (name == "--ack-timeout")
        options.ackTimeout = std::chrono::milliseconds(Number(name, value));
    else if (name == "--callpoint-timeout")
        options.callpointTimeout = std::chrono::milliseconds(Number(name, value));
    else if (name == "--history-limit")
        options.historyLimit = Number(name, value);
    else if (name == "--history-bytes")
        options.historyBytes = Size(name, value, kLeastHistory);
    else if (name == "--history-days")
        options.historyDays = static_cast<std::uint32_t>(Number(name, value));
    else if (name == "--map-size")
        options.mapSize = Size(name, value, kLeastMap);
    else if (name == "--export")
        options.exportFile = value;
    else if (name == "--import")
        options.importFile = value;
    else
        throw UsageError("there is no option " + name);
}

}  // namespace

ProgramOptions ParseOptions(int argc, const char* const* argv, const fs::path& program,
                            const std::function<std::optional<std::string>(const char* name)>& environment)
{
    ProgramOptions options;
    options.runDirectory = environment("SFLOW_RUN_DIR").value_or("/run/sflow-switch");
    options.stateDirectory = environment("SFLOW_STATE_DIR").value_or("/var/lib/sflow-switch");
    const auto yang = environment("SFLOW_YANG_DIR");
    options.yangDirectory = yang ? fs::path(*yang) : YangDirectory(program);
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
           "  --help, --version       say so, and end\n"
           "\n"
           "environment:\n"
           "  SFLOW_LOG               log file, or - for standard error (-)\n"
           "  SFLOW_LOG_LEVEL         lowest level written: 10 debug, 11 info, 12 notice, 13 error (12)\n";
}

std::string VersionText() { return "cdbd " SFLOW_VERSION "\n"; }

}  // namespace agent
