// SPDX-License-Identifier: Apache-2.0
// What is typed for the golden texts, a scene a state of the switch.

#ifndef SCREENS_SCENES_H
#define SCREENS_SCENES_H

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace screens_tests {

/// Stands for the directory of the test in lines and in golden texts; as long as its name.
inline constexpr std::string_view kDirectory = "/tmp/sflow-SWITCH";

/// The lines of each scene by its name. The interfaces p1, p2, p3 and p10 have the aliases
/// gigabit-ethernet-1/1/1 and so on.
const std::map<std::string, std::vector<std::string>>& GoldenScenes();

/// Lines at whose end '?' is typed, in operational mode up to the line "configure", which is run.
const std::vector<std::string>& AskedLines();

/// The configuration of all scenes but "empty", as lines for the shell.
const std::vector<std::string>& GoldenConfiguration();

/// Commands of the table that no scene types, with the reason.
const std::map<std::string, std::string>& WithoutScene();

}  // namespace screens_tests

#endif
