// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "canvas.h"
#include "keys.h"

#include <memory>
#include <optional>

namespace top {

// The terminal, in the state that a full screen takes; as it was before when this goes.
class screen {
public:
    explicit screen(bool coloured); // throws std::runtime_error when the terminal cannot do it
    ~screen();
    screen(const screen &) = delete;
    screen &operator=(const screen &) = delete;

    int width() const;
    int height() const;
    void show(const canvas &content);
    void repaint();                    // what another program wrote over it
    std::optional<press> next_press(); // nothing when no key waits
    void resize();                     // to what the terminal is now
    void leave();                      // until show
private:
    struct state;
    std::unique_ptr<state> self_;
};

} // namespace top
