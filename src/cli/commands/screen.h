// SPDX-License-Identifier: Apache-2.0
// A terminal that a command fills, as commands see it. The shell has the one on which people type.

#ifndef CLI_COMMANDS_SCREEN_H
#define CLI_COMMANDS_SCREEN_H

#include <optional>
#include <vector>

#include "cli/screens/rate_graph.h"
#include "cli/screens/styled_line.h"
#include "cli/screens/watch_scene.h"
#include "cli/screens/watch_view.h"

namespace cli {

/// Takes the whole terminal; its end leaves the terminal as it was.
class Screen {
public:
    Screen() = default;
    virtual ~Screen() = default;
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    /// As it was when the terminal was last asked: at the start, and by Resize.
    [[nodiscard]] virtual ScreenSize Size() const = 0;
    virtual void Resize() = 0;
    [[nodiscard]] virtual Charset Characters() const = 0;
    virtual void Draw(const std::vector<StyledLine>& lines) = 0;
    /// Nullopt if no key has been pressed. Does not wait.
    virtual std::optional<KeyPress> Read() = 0;
    /// Can be read when a key has been pressed.
    [[nodiscard]] virtual int Descriptor() const = 0;
};

}  // namespace cli

#endif
