// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "canvas.h"
#include "model.h"

#include <string>
#include <vector>

namespace top {

// A rectangle of a screen to draw in.
struct area {
    int x = 0, y = 0, width = 0, height = 0;
};

// What charts are drawn with, for a whole screen alike.
class pen {
public:
    pen(const model &m, canvas &on, glyphs set) : m_(m), on_(on), set_(set) {}

    // One GPU: a line that says which, then its charts, as large as there is room for.
    void panel(const gpu_now &g, area where, bool is_chosen);
    // Its course in one line of cells.
    void spark(const gpu_now &g, series of, int x, int y, int width);
    std::vector<float> course(const gpu_now &g, series of, int width) const;

private:
    struct beside { // a series that shares another's chart
        const char *label;
        series of;
    };
    struct chart {
        const char *name;
        series of;
        std::vector<beside> others{};
    };
    static std::vector<chart> charts_of(const gpu_now &g);
    void title(const gpu_now &g, area where, bool is_chosen);
    void draw(const gpu_now &g, const chart &c, area where);
    void draw_line(const gpu_now &g, const chart &c, area where);
    void draw_beside(const gpu_now &g, const chart &c, area where);
    void plot(const gpu_now &g, series of, area where, const std::vector<double> &limits);

    const model &m_;
    canvas &on_;
    glyphs set_;
};

std::string value_text(const gpu_now &g, series of); // "48 °C"; what became of the GPU, else N/A
std::string amount_text(double number, series of);   // "48 °C"
// "STUCK since 14:02:11: reading fan_speed (...)"
std::string state_text(const gpu_now &g, std::chrono::system_clock::time_point now);
look look_of(const gpu_now &g);
look look_of(const gpu_now &g, series of); // where the value is over a limit

} // namespace top
