// SPDX-License-Identifier: Apache-2.0
// What is shown and what the keys do to it, without a terminal.
#include "top/view.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>

namespace {

using namespace top;
using readings::field_of;
using readings::gpu_state;
using std::chrono::seconds;

readings::answer gpu(unsigned index, gpu_state state = gpu_state::ok)
{
    readings::answer one;
    one.index = index;
    one.state = state;
    one.detail = state == gpu_state::ok ? "" : "reading \x1b[2Jfan_speed";
    one.values[readings::index_of(field_of("model"))] = std::string("VEK\x1b]0;M310");
    if (state == gpu_state::ok)
        one.values[readings::index_of(field_of("gpu_util_percent"))] = std::uint64_t{40};
    return one;
}

// What it takes for a chart's scale, or for it to have one, stays when it falls ill.
std::vector<double> kept_for_charts(const gpu_now &g)
{
    return {
        double(g.has_encoder), double(g.has_decoder), g.memory_total, g.slowdown, g.shutdown, g.fan_max, g.clock_max};
}

// Rows of GPU, process, memory and command.
struct row {
    unsigned gpu, pid, memory;
    const char *user, *command;
};
model with_processes(std::initializer_list<row> rows)
{
    readings::answers all = {gpu(0), gpu(1)};
    for (readings::answer &one : all)
        one.processes = readings::json::array();
    for (const row &r : rows)
        all[r.gpu].processes.push_back({{"pid", r.pid},
                                        {"memory", r.memory},
                                        {"memory_total", 9 - r.memory},
                                        {"user", r.user},
                                        {"command", r.command}});
    model m;
    m.take(all, seconds(0), {});
    return m;
}

std::string pids(const model &m, std::optional<unsigned> of = {})
{
    std::string text;
    for (const process_now &p : m.listed(of))
        text += std::to_string(p.pid);
    return text;
}

void type(model &m, const std::string &keys, const layout &where = {})
{
    for (const char c : keys) {
        const press pressed = c == '\n'     ? press{key::enter}
                              : c == '\x1b' ? press{key::escape}
                              : c == '\t'   ? press{key::tab}
                              : c == '\b'   ? press{key::backspace}
                                            : press{key::character, static_cast<char32_t>(c)};
        EXPECT_EQ(apply(pressed, where, glyphs::braille, m), outcome::go_on);
    }
}

TEST(top_model_test, processes_are_sorted_by_two_keys_and_filtered)
{
    model m = with_processes(
        {{1, 5, 3, "ana", "player"}, {0, 4, 3, "bob", "Modeler"}, {1, 3, 7, "bob", "x"}, {0, 2, 3, "ana", "player"}});
    EXPECT_EQ(pids(m), "3245") << "most memory first, then by GPU and process";
    type(m, "r");
    EXPECT_EQ(pids(m), "2453") << "only the first key is reversed";
    type(m, "s"); // all_memory, then memory
    EXPECT_EQ(pids(m), "2453");
    type(m, "s"); // command, then all_memory
    EXPECT_EQ(pids(m), "4253");
    m.wanted.sort = column::user;
    m.wanted.then_sort = column::pid;
    EXPECT_EQ(pids(m), "2534");
    EXPECT_EQ(pids(m, 1), "53");
    type(m, "/MODEL");
    EXPECT_EQ(pids(m), "4");
    type(m, "\b\b\b\b\bana\b");
    EXPECT_EQ(m.filter, "an");
    type(m, "\x1b/5\n");
    EXPECT_EQ(pids(m), "5");
    EXPECT_FALSE(m.typing_filter);
    type(m, "\x1b");
    EXPECT_EQ(pids(m).size(), 4U);
}

TEST(top_model_test, keys_choose_intervals_spans_gpus_and_help)
{
    model m = with_processes({});
    type(m, "+++");
    EXPECT_EQ(m.wanted.interval, seconds(10));
    for (int i = 0; i < 20; ++i)
        type(m, "-");
    EXPECT_EQ(m.wanted.interval, shortest_interval);
    m.wanted.interval = std::chrono::milliseconds(1500); // as a command line may have it
    type(m, "-");
    EXPECT_EQ(m.wanted.interval, seconds(1));
    type(m, "tttt");
    EXPECT_EQ(m.wanted.span, seconds(0));
    type(m, "g");
    EXPECT_EQ(m.wanted.drawn_with, glyphs::blocks);
    apply({key::down}, {.gpu_columns = 1}, glyphs::ascii, m);
    apply({key::right}, {.gpu_columns = 1}, glyphs::ascii, m);
    EXPECT_EQ(m.selected, 1U);
    type(m, "h");
    EXPECT_TRUE(m.helping);
    type(m, "\n");
    EXPECT_FALSE(m.helping || m.in_depth);
    type(m, "\n\t");
    EXPECT_TRUE(m.in_depth && m.at == focus::processes);
    EXPECT_EQ(apply({key::character, 'q'}, {}, glyphs::ascii, m), outcome::quit);
}

TEST(top_model_test, the_mouse_finds_what_is_drawn)
{
    model m = with_processes({{0, 4, 3, "ana", "player"}});
    const layout where = draw(m, 80, 24, glyphs::braille).where;
    const auto at = [&](int x, int y) { return press{key::click, 0, x, y}; };
    apply(at(60, 3), where, glyphs::braille, m);
    EXPECT_TRUE(m.selected == 1 && !m.in_depth);
    apply(at(60, 3), where, glyphs::braille, m);
    EXPECT_TRUE(m.in_depth);
    const auto heading = std::find_if(where.regions.begin(), where.regions.end(),
                                      [](const region &r) { return r.sort == column::user; });
    ASSERT_NE(heading, where.regions.end());
    apply(at(heading->x, heading->y), where, glyphs::braille, m);
    EXPECT_TRUE(m.wanted.sort == column::user && m.wanted.then_sort == column::memory);
    apply(at(500, 500), where, glyphs::braille, m);
}

TEST(top_model_test, a_sick_gpu_keeps_its_place_and_a_new_one_moves_none)
{
    std::setlocale(LC_CTYPE, "C.UTF-8");
    model m;
    readings::answer healthy = gpu(1);
    for (const readings::field *each :
         readings::pick<"video_encoder_rate", "video_decoder_rate", "memory_total", "thermal_slowdown",
                        "thermal_shutdown", "fan_speed_max", "gfx_clock_max_mhz">())
        healthy.values[readings::index_of(*each)] = std::uint64_t{7};
    m.take({gpu(0), healthy, gpu(2)}, seconds(0), {});
    EXPECT_EQ(kept_for_charts(*m.gpu(1)), (std::vector<double>{1, 1, 7, 7, 7, 7, 7}));
    const auto rows = [&] {
        std::vector<std::string> first;
        for (const region &r : draw(m, 80, 24, glyphs::ascii).where.regions)
            if (r.gpu)
                first.push_back(std::to_string(*r.gpu) + "@" + std::to_string(r.x) + "," + std::to_string(r.y));
        return first;
    };
    const auto before = rows();
    m.take({gpu(0), gpu(1, gpu_state::lost), gpu(2), gpu(3)}, seconds(1), {});
    EXPECT_EQ(kept_for_charts(*m.gpu(1)), (std::vector<double>{1, 1, 7, 7, 7, 7, 7}));
    EXPECT_EQ(kept_for_charts(*m.gpu(0)), std::vector<double>(7));
    auto after = rows();
    ASSERT_EQ(after.size(), 4U);
    after.pop_back();
    EXPECT_EQ(after, before);
    EXPECT_TRUE(m.is_ill());
    EXPECT_TRUE(std::isnan(highest(m.past().columns(1, series::load, {seconds(2), seconds(1), 1}))));
    const std::string text = draw(m, 80, 24, glyphs::ascii).cells.text();
    EXPECT_NE(text.find("LOST"), text.npos) << text;
    EXPECT_NE(text.find("VEK?]0;M310"), text.npos) << "a stranger's escapes stay words\n" << text;
    EXPECT_EQ(text.find('\x1b'), text.npos);
    // Held still, it shows what it showed, and catches up afterwards.
    m.pause(true);
    m.take({gpu(0)}, seconds(2), {});
    EXPECT_EQ(m.shown().gpus.size(), 4U);
    m.pause(false);
    EXPECT_EQ(m.shown().gpus.size(), 1U);
    m.take({}, seconds(3), {});
    EXPECT_NE(draw(m, 80, 24, glyphs::ascii).cells.text().find("no GPU found"), std::string::npos);
}

class settings_test : public ::testing::Test {
protected:
    settings_test() { std::filesystem::create_directories(folder); }
    ~settings_test() override { std::filesystem::remove_all(folder); }
    const std::string folder = ::testing::TempDir() + "top_settings_" + std::to_string(getpid());
    const std::string path = settings_path(folder.c_str(), nullptr);
    std::string trouble;
};

TEST_F(settings_test, what_was_chosen_is_found_again)
{
    settings chosen{.interval = std::chrono::milliseconds(2500),
                    .span = std::chrono::minutes(15),
                    .sort = column::user,
                    .then_sort = column::pid,
                    .reversed = true,
                    .drawn_with = glyphs::blocks};
    EXPECT_EQ(load_settings(path, trouble), settings{});
    EXPECT_EQ(trouble, "") << "none were kept yet";
    EXPECT_TRUE(save_settings(path, chosen));
    EXPECT_EQ(load_settings(path, trouble), chosen);
    EXPECT_EQ(trouble, "");
    EXPECT_FALSE(std::filesystem::exists(path + ".new"));
    EXPECT_EQ(settings_path("/state", "/home/ana"), "/state/veksmi/top");
    EXPECT_EQ(settings_path("relative", "/home/ana"), "/home/ana/.local/state/veksmi/top");
    EXPECT_EQ(settings_path(nullptr, ""), "");
    EXPECT_FALSE(save_settings("/proc/none/top", chosen));
}

TEST_F(settings_test, a_broken_file_is_ignored_with_a_word)
{
    const std::string good = text_of({});
    ASSERT_TRUE(settings_from(good));
    std::vector<std::string> broken = {
        "", "{", "[]", "null", "\xff\xfe", std::string(5000, ' ') + good, std::string(3000, '[')};
    const std::pair<std::string, const char *> faults[] = {{"1000", "99"},
                                                           {"1000", "1e9"},
                                                           {"1000", "-1"},
                                                           {"1000", "\"1\""},
                                                           {"memory", "colour"},
                                                           {"\"gpu\"", "3"},
                                                           {"false", "0"},
                                                           {"span_s\":0", "span_s\":7"},
                                                           {"interval_ms", "interval"}};
    for (const auto &[part, other] : faults)
        broken.push_back(std::string(good).replace(good.find(part), part.size(), other));
    save_settings(path, {});
    for (const std::string &text : broken) {
        trouble.clear();
        std::ofstream(path) << text;
        EXPECT_EQ(load_settings(path, trouble), settings{}) << text;
        EXPECT_NE(trouble.find("ignored"), std::string::npos) << text;
    }
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(load_settings(path, trouble), settings{}) << "nor is it waited for";
}

} // namespace
