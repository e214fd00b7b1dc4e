// SPDX-License-Identifier: Apache-2.0
// A command's answer in the form that was asked for.

#ifndef CLI_COMMANDS_SHOW_H
#define CLI_COMMANDS_SHOW_H

#include <ostream>
#include <string>

#include "cli/commands/command.h"
#include "cli/commands/request.h"
#include "cli/data/config_text.h"
#include "cli/data/data_tree.h"
#include "netconf/requests.h"

namespace cli {

/// Prints the data, which may be null: as text, or itself in the form that was asked for.
template <typename TextOf>
void Show(const Call& call, const Tree& tree, const TextOf& text)
{
    switch (call.format) {
    case Format::kText:
    case Format::kInherited:
        call.out << text(tree.get());
        break;
    case Format::kJson:
        call.out << ToJson(tree.get());
        break;
    case Format::kXml:
        call.out << ToXml(tree.get());
        break;
    case Format::kSet:
        call.out << ToSetLines(tree.get());
        break;
    }
}

/// `content`: of the state's top-level container, as a filter.
inline std::string StateFilter(const std::string& content)
{
    return "<state xmlns=\"urn:switch:yang:switch-state\">" + content + "</state>";
}

/// The same, shown.
template <typename TextOf>
void ShowState(Call& call, const std::string& content, const TextOf& text)
{
    Show(call, RequestState(call, netconf::Get(StateFilter(content))), text);
}

/// What comes and what goes; that there is nothing of it is said, and is no result.
inline void ShowDifferences(const Call& call, const std::string& differences)
{
    if (differences.empty()) call.err << "there is no difference\n";
    call.out << call.style.Differences(differences);
}

}  // namespace cli

#endif
