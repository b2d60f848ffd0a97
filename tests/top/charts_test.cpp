// SPDX-License-Identifier: Apache-2.0
// From a series to cells, and cells to text: nothing here knows a terminal.
#include "top/canvas.h"
#include "top/charts.h"
#include "top/history.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>

namespace {

using namespace top;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

std::string drawn(const std::vector<float> &values, int width, int height, glyphs set,
                  const std::vector<double> &limits = {})
{
    std::string text;
    const auto cells = draw_chart(values, width, height, {0, 100}, limits, set);
    for (std::size_t i = 0; i < cells.size(); ++i)
        text += encoded(cells[i].glyph) + ((i + 1) % static_cast<std::size_t>(width) == 0 ? "|" : "");
    return text;
}

TEST(charts_test, values_become_cells)
{
    EXPECT_EQ(drawn({0, 25, 50, 75, 100, gap, gap, 100}, 4, 1, glyphs::braille), "⣀⣴⡇⢸|") << "a gap is no zero";
    EXPECT_EQ(drawn({0, 12.5, 13, 50, 100}, 5, 1, glyphs::blocks), "▁▁▂▄█|");
    EXPECT_EQ(drawn({0, 40, 100, gap}, 4, 1, glyphs::ascii), ".:| |");
    EXPECT_EQ(drawn({50, 75, 100}, 3, 2, glyphs::blocks), " ▄█|███|");
    EXPECT_EQ(drawn({-5, 500}, 2, 2, glyphs::blocks), " █|▁█|") << "beyond the scale";
    EXPECT_EQ(drawn({10, 60}, 3, 2, glyphs::ascii, {90}), "-.-|.| |") << "a limit is a line behind the values";
    EXPECT_EQ(drawn({}, 2, 1, glyphs::braille), "  |");
    EXPECT_TRUE(draw_chart({1}, 0, 3, {}, {}, glyphs::braille).empty());
    const auto cells = draw_chart({89, 90}, 2, 1, {0, 100}, {90, 95}, glyphs::blocks);
    EXPECT_EQ(cells[0].what, mark::value);
    EXPECT_EQ(cells[1].what, mark::over);
}

TEST(charts_test, the_terminal_decides_on_glyphs_and_the_values_on_the_scale)
{
    EXPECT_EQ(fitting("UTF-8", "xterm-256color"), glyphs::braille);
    EXPECT_EQ(fitting("UTF-8", "linux"), glyphs::blocks);
    EXPECT_EQ(fitting("UTF-8", "vt220"), glyphs::ascii);
    EXPECT_EQ(fitting("ANSI_X3.4-1968", "xterm"), glyphs::ascii);
    const std::pair<double, double> ends[] = {{0, 1}, {1, 1}, {3, 5}, {50, 50}, {51, 100}, {0.3, 0.5}, {NAN, 1}};
    for (const auto &[value, end] : ends)
        EXPECT_DOUBLE_EQ(round_end(value), end) << value;
}

samples all_of(float value)
{
    samples values;
    values.fill(value);
    return values;
}

TEST(history_test, columns_show_the_highest_within_them_and_gaps)
{
    history past;
    const float loads[] = {10, 30, gap, 20}; // a second apart; the last stands until nobody knows better
    for (int i = 0; i < 4; ++i) {
        past.begin_round(seconds(i), seconds(1));
        past.add(7, all_of(loads[i]));
    }
    const auto shown = [&](seconds end, milliseconds column, std::size_t count) {
        std::vector<int> values;
        for (const float value : past.columns(7, series::power, {end, column, count}))
            values.push_back(std::isnan(value) ? -1 : static_cast<int>(value));
        return values;
    };
    EXPECT_EQ(shown(seconds(4), seconds(1), 6), (std::vector<int>{-1, -1, 10, 30, -1, 20}));
    EXPECT_EQ(shown(seconds(4), seconds(2), 2), (std::vector<int>{30, 20}));
    EXPECT_EQ(shown(seconds(2), milliseconds(500), 4), (std::vector<int>{10, 10, 30, 30}));
    EXPECT_EQ(shown(seconds(14), seconds(1), 4), (std::vector<int>{20, -1, -1, -1})) << "old numbers are no line";
    EXPECT_EQ(shown(seconds(0), seconds(1), 2), (std::vector<int>{-1, -1}));
    EXPECT_EQ(past.columns(8, series::power, {seconds(4), seconds(1), 2}).size(), 2U) << "of a GPU never seen";
}

TEST(history_test, an_hour_of_15_gpus_fits_in_8_mebibytes_at_any_interval)
{
    for (const milliseconds interval : {milliseconds(100), milliseconds(501), milliseconds(1000), milliseconds(5000)}) {
        history past;
        moment now{};
        for (; now < minutes(90); now += interval) {
            past.begin_round(now, interval);
            for (unsigned gpu = 0; gpu < 15; ++gpu)
                past.add(gpu, all_of(static_cast<float>(now / minutes(1))));
        }
        EXPECT_LT(past.bytes(), 8U << 20) << interval.count();
        EXPECT_GT(past.bytes(), 15 * 700 * sizeof(samples)) << interval.count(); // an hour of the longest
        const auto minutes_ago = past.columns(14, series::fan, {minutes(90), minutes(1), 60});
        EXPECT_NEAR(minutes_ago.front(), 30, 1) << interval.count();
        EXPECT_NEAR(minutes_ago.back(), 89, 1) << interval.count();
    }
    history quick; // what shares an entry keeps its highest
    for (const float load : {10.0F, 90.0F, gap, 20.0F}) {
        quick.begin_round(milliseconds(100), milliseconds(100));
        quick.add(0, all_of(load));
    }
    EXPECT_FLOAT_EQ(highest(quick.columns(0, series::load, {seconds(1), seconds(1), 1})), 90);
}

TEST(canvas_test, text_keeps_to_its_cells)
{
    std::setlocale(LC_CTYPE, "C.UTF-8");
    canvas wide(10, 6, false);
    EXPECT_EQ(wide.put(0, 0, "タロン-W2"), 9);
    wide.put(0, 1, "タロン-W2", plain, 5); // half of a glyph is none
    wide.put(8, 2, "タロ");
    wide.put(0, 3, "e\u0301t\u00e9");
    wide.put(0, 4, "タロ");
    wide.put(1, 4, "x");
    wide.put_right(10, 5, "48 °C");
    wide.put(0, 99, "nowhere");
    wide.set(-1, 0, U'x', plain);
    EXPECT_EQ(wide.text(), "タロン-W2\nタロ…\n        …\ne\u0301t\u00e9\n xロ\n     48 °C\n");
    canvas narrow(10, 2, true);
    narrow.put(0, 0, "48 °C タ");
    narrow.put_right(10, 0, "9 °C");
    narrow.put(0, 1, "much too long");
    EXPECT_EQ(narrow.text(), "48 C ? 9 C\nmuch too ~\n");
}

} // namespace
