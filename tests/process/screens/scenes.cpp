// SPDX-License-Identifier: Apache-2.0
#include "screens/scenes.h"

namespace screens_tests {

const std::map<std::string, std::vector<std::string>>& GoldenScenes()
{
    static const std::map<std::string, std::vector<std::string>> scenes = {
        // Nothing is configured.
        {"empty",
         {"show sflow", "show sflow problems", "show sflow interfaces", "show sflow interface detail",
          "show sflow collectors", "show sflow collector detail", "show sflow agent", "show sflow drops",
          "show interfaces", "show configuration", "show configuration | display set",
          "show configuration | json", "compare", "show history", "show checkpoints", "show system faults",
          "show system candidates", "configure", "compare", "commit", "discard", "validate", "exit"}},
        // With results on standard output only.
        {"state",
         {"show sflow", "show sflow problems", "show sflow interfaces", "show sflow interface gigabit-ethernet-1/1/1 p99",
          "show sflow interface gigabit-ethernet-1/1/1 detail",
          "show sflow interface gigabit-ethernet-1/1/3 detail", "show sflow collectors",
          "show sflow collector c1 detail", "show sflow collector far detail", "show sflow agent",
          "show sflow drops", "show interfaces", "show system processes", "show system candidates",
          "show system faults", "show version", "show history",
          "show history last 1", "show history 1", "show checkpoints"}},
        {"forms",
         {"show version | json", "show version | display xml",
          "show configuration oam sflow agent", "show configuration oam sflow interface p99",
          "show configuration oam sflow interface p99 | json",
          "show configuration oam sflow interface p99 | display xml", "show configuration | display set",
          "show configuration running", "show configuration | match sampling-rate",
          "show configuration | except sampling-rate | count", "show sflow problems | begin Off",
          "show sflow problems | match Broken"}},
        {"edit",
         {"configure",
          "set oam sflow interface p99 sampling-rate 4096",
          "set oam sflow interface p99 polling-interval 30",
          "delete oam sflow collector off",
          "compare",
          "show configuration oam sflow interface p99",
          "validate",
          "show system candidates",
          "edit oam sflow collector c1",
          "set port 6344",
          "show configuration",
          "up",
          "top",
          "discard",
          "compare",
          "set oam sflow interface p99 sampling-rate 4096",
          "commit comment \"fewer samples of p99\"",
          "set oam sflow interface p99 sampling-rate 8192",
          "commit | json",
          "commit",
          "compare rollback 1",
          "compare rollback commit 1",
          "rollback 2",
          "rollback commit 1",
          "compare",
          "rollback 0",
          "request checkpoint before-work",
          "set oam sflow interface p99 sampling-rate 16384",
          "commit confirmed 600",
          "show history",
          "cancel",
          "commit confirmed 600",
          "set oam sflow interface p99 sampling-rate 16384",
          "commit confirmed 600 comment \"try it\"",
          "confirm",
          "show history last 4",
          "show checkpoints",
          "request checkpoint before-work",
          "request checkpoint before-work replace",
          "request delete-checkpoint before-work",
          "request delete-checkpoint before-work",
          "configure private",
          "set oam sflow interface p99 sampling-rate 1",
          "show system sessions",
          "update",
          "update running",
          "exit",
          "configure exclusive",
          "set oam sflow interface p99 sampling-rate 1",
          "show system sessions",
          "configure shared",
          "run show history last 1",
          "quit",
          "request sflow resync",
          "clear sflow statistics",
          "request sflow test collector c1",
          "request sflow test collector far",
          "request ha go-standby",
          "show system processes",
          "request ha go-active",
          "request backup /no/such/directory/file"}},
        {"errors",
         {"shwo sflow",
          "show",
          "show sflow interface nix",
          "show sflow collector nix detail",
          "show sflow | display set",
          "show sflow | grep x",
          "show sflow | match",
          "show sflow | match \"[\"",
          "set oam sflow interface p99 sampling-rate 1",
          "configure",
          "set oam",
          "set oam sflow interface p99 sampling-rate lots",
          "set oam sflow interface p99 sampling-rte 1",
          "set oam sflow interface p99 sampling-rate",
          "set oam sflow collector c1 ip 1.2.3",
          "set oam sflow interface p99 flow-sampling-collector nix",
          "commit",
          "discard",
          "delete oam sflow collector nix",
          "load merge /no/such/file",
          "load replace /tmp/sflow-SWITCH/s",
          "load set /tmp/sflow-SWITCH/s",
          "show configuration | display set | save /tmp/sflow-SWITCH/s",
          "load set /tmp/sflow-SWITCH/s",
          "load replace /tmp/sflow-SWITCH/s",
          "load merge /tmp/sflow-SWITCH/s",
          "discard",
          "commit confirmed soon",
          "rollback 4711",
          "show history 4711",
          "request session 4711 end",
          "request sflow test collector nix",
          "confirm",
          "cancel",
          "exit"}},
        {"help", {"help", "help show sflow", "help nonsense"}},
        {"no-daemon", {"show sflow", "show sflow problems", "show sflow agent", "show system processes"}},
        {"no-manager",
         {"show sflow", "show sflow problems", "show sflow interfaces", "show interfaces",
          "show system processes", "configure", "set oam sflow interface p99 sampling-rate 7", "commit",
          "exit"}},
        {"no-database", {"show sflow", "show configuration", "help exit"}},
    };
    return scenes;
}

const std::vector<std::string>& GoldenConfiguration()
{
    static const std::vector<std::string> lines = [] {
        std::vector<std::string> all = {
            "set oam sflow agent ipv4 192.0.2.9",          "set oam sflow collector c1 ip 127.0.0.1",
            "set oam sflow collector far ip 203.0.113.1",  "set oam sflow collector off ip 127.0.0.1",
            "set oam sflow collector off enabled false",   "set oam sflow interface p99 sampling-rate 3000",
            "set oam sflow interface p99 flow-sampling-collector far"};
        for (int port = 1; port <= 10; ++port) {
            const std::string set =
                "set oam sflow interface gigabit-ethernet-1/1/" + std::to_string(port) + " ";
            all.push_back(set + "flow-sampling-collector c1");
            if (port <= 3 || port == 10) all.push_back(set + "sampling-rate 1");
        }
        return all;
    }();
    return lines;
}

const std::map<std::string, std::string>& WithoutScene()
{
    static const std::map<std::string, std::string> reasons = {
        {"monitor sflow", "a line a second whose figures are of that second; monitor_test"},
        {"monitor events", "runs until Ctrl-C; monitor_test"},
    };
    return reasons;
}

}  // namespace screens_tests
