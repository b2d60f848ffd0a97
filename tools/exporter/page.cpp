// SPDX-License-Identifier: Apache-2.0
#include "page.h"

#include "readings/fields.h"
#include "readings/units.h"

#include <ctime>
#include <fmt/chrono.h>
#include <fmt/format.h>

namespace exporter {
namespace {

using readings::answer;
using readings::field;
using readings::field_of;
using readings::gpu_state;

constexpr const char *head = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="refresh" content="15">
<title>GPUs of this host</title>
<style>
:root { color-scheme: light dark; }
body { font: 16px/1.4 system-ui, sans-serif; margin: 0 auto; padding: 1rem; max-width: 75rem;
  background: #fff; color: #1b1b1b; }
h1 { font-size: 1.35rem; margin: 0 0 .2rem; }
h2 { font-size: 1.05rem; margin: 0; overflow-wrap: anywhere; }
p { margin: .2rem 0 1rem; }
a { color: #0b57a4; }
main { display: grid; gap: 1rem; grid-template-columns: repeat(auto-fill, minmax(min(100%, 21rem), 1fr)); }
section { border: 1px solid #888; border-left: .5rem solid #2a7d3c; border-radius: .3rem; padding: .7rem .9rem; }
section.asleep { border-left-color: #5a6b8c; border-left-style: double; }
section.stuck, section.crashed, section.lost { border-left-color: #b3261e; }
.where { color: #555; font-family: ui-monospace, monospace; font-size: .85rem; }
.state { font-weight: 600; margin: .4rem 0; }
.why { overflow-wrap: anywhere; }
dl { display: grid; grid-template-columns: auto 1fr; gap: .1rem 1rem; margin: 0; }
dt { color: #555; }
dd { margin: 0; text-align: right; font-variant-numeric: tabular-nums; }
@media (prefers-color-scheme: dark) {
  body { background: #16181c; color: #e6e6e6; }
  a { color: #8fc1ff; }
  dt, .where { color: #aab0b8; }
}
</style>
</head>
<body>
)";

constexpr const char *sign_of(gpu_state state)
{
    constexpr const char *signs[] = {"&#10003;", "&#9790;", "&#10007;", "&#10007;", "&#10007;"};
    return signs[static_cast<std::size_t>(state)];
}

std::string escaped(std::string_view text)
{
    std::string safe;
    for (const char c : readings::printable(text)) {
        switch (c) {
        case '&':
            safe += "&amp;";
            break;
        case '<':
            safe += "&lt;";
            break;
        case '>':
            safe += "&gt;";
            break;
        case '"':
            safe += "&quot;";
            break;
        case '\'':
            safe += "&#39;";
            break;
        default:
            safe += c;
        }
    }
    return safe;
}

std::string shown(const answer &one, const field &f)
{
    return human(one[f], f.in);
}

void put_row(std::string &page, const char *name, const std::string &text)
{
    page += fmt::format("<dt>{}</dt><dd>{}</dd>\n", name, escaped(text));
}

// "1.9 of 8.0 GiB"; what is missing says so once.
std::string memory_of(const answer &one)
{
    const std::string used = shown(one, field_of("memory_used")), total = shown(one, field_of("memory_total"));
    return is_present(one[field_of("memory_used")]) && is_present(one[field_of("memory_total")])
               ? fmt::format("{} of {}", used, total)
               : used;
}

// Since when it is not well, and why. A path may be broken at its slashes.
std::string told_trouble(const answer &one)
{
    const auto since = std::chrono::system_clock::to_time_t(one.since);
    const std::string text = escaped(fmt::format("since {:%Y-%m-%d %H:%M:%S} UTC{}{}", fmt::gmtime(since),
                                                 one.detail.empty() ? "" : ": ", one.detail));
    std::string broken;
    for (const char c : text)
        broken += c == '/' ? std::string("<wbr>/") : std::string(1, c);
    return broken;
}

void put_gpu(std::string &page, const answer &one, const gpu_history &history)
{
    const readings::value &name = one[field_of("name")], &model = one[field_of("model")];
    const std::string title = text_of(is_present(name) ? name : model);
    page += fmt::format("<section class=\"{}\">\n<h2>GPU {}", name_of(one.state), one.index);
    if (!title.empty())
        page += fmt::format(": <bdi>{}</bdi>", escaped(title));
    page += fmt::format("</h2>\n<div class=\"where\">{}</div>\n", escaped(history.bus_id));
    page += fmt::format("<div class=\"state\">{} {}</div>\n", sign_of(one.state), name_of(one.state));
    if (one.state != gpu_state::ok) {
        page += fmt::format("<div class=\"why\">{}</div>\n", told_trouble(one));
    } else {
        page += "<dl>\n";
        put_row(page, "temperature", shown(one, field_of("temperature")));
        put_row(page, "load", shown(one, field_of("gpu_util_percent")));
        put_row(page, "memory", memory_of(one));
        put_row(page, "power", shown(one, field_of("power")));
        put_row(page, "fan", shown(one, field_of("fan_speed")));
        put_row(page, "graphics clock", shown(one, field_of("gfx_clock_mhz")));
        put_row(page, "processes", shown(one, field_of("process_count")));
        page += "</dl>\n";
    }
    page += "</section>\n";
}

} // namespace

std::string overview_page(const snapshot &seen)
{
    std::string page = head;
    std::size_t well = 0;
    for (const answer &one : seen.gpus)
        well += is_sick(one.state) ? 0 : 1;
    const auto now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    page += fmt::format("<h1>{} of {} GPUs well</h1>\n", well, seen.gpus.size());
    page += fmt::format("<p>{:%Y-%m-%d %H:%M:%S} UTC &middot; <a href=\"metrics\">metrics</a> &middot; "
                        "<a href=\"healthz\">health</a></p>\n<main>\n",
                        fmt::gmtime(now));
    for (std::size_t i = 0; i < seen.gpus.size(); ++i)
        put_gpu(page, seen.gpus[i], seen.histories[i]);
    if (seen.gpus.empty())
        page += "<p>No GPU found on this host.</p>\n";
    return page + "</main>\n</body>\n</html>\n";
}

} // namespace exporter
