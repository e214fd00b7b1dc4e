// SPDX-License-Identifier: Apache-2.0
#include "cli/screens/candidates_text.h"

#include <libyang/libyang.h>

#include "cli/data/state_node.h"
#include "cli/screens/text_table.h"

namespace cli {

std::string CandidatesText(const lyd_node* state)
{
    const Children candidates = Children(state).Of("system").Of("candidates");
    TextTable editors({"Session", "User", "Edits", "Last edit"});
    candidates.ForEach("editor", [&](const lyd_node* node) {
        const Children editor(node);
        editors.Add({editor.Value("session-id"), editor.Value("user"), editor.Value("edits"),
                     editor.Time("last-edit")});
    });
    TextTable own({"Session", "User", "Opened", "Began with commit", "Edits", "Last edit"});
    candidates.ForEach("private", [&](const lyd_node* node) {
        const Children each(node);
        own.Add({each.Value("session-id"), each.Value("user"), each.Time("opened"), each.Value("base-commit"),
                 each.Value("edits"), each.Time("last-edit")});
    });
    std::string text = editors.Empty() ? "The shared candidate has no edits.\n"
                                       : "Edits of the shared candidate, which a commit of it takes all:\n" +
                                             editors.Text(2);
    if (!own.Empty()) text += "\nPrivate candidates:\n" + own.Text(2);
    return text;
}

}  // namespace cli
