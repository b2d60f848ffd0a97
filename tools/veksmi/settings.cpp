// SPDX-License-Identifier: Apache-2.0
// The commands that change something.
#include "output.h"
#include "session.h"
#include "setting_table.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <unistd.h>

namespace {

bool is_named(const setting &s)
{
    return *s.what != '\0';
}

std::string command_of(const setting &s)
{
    return fmt::format("{} set{}{}", s.family, is_named(s) ? " " : "", s.what);
}

std::string pause_of(const setting &s)
{
    return fmt::format("{:g} s", s.pause / 1000.0);
}

std::string values_of(const setting &s)
{
    if (s.values != nullptr)
        return s.values;
    const std::string steps = s.step == 1 ? "" : fmt::format(" in steps of {}", s.step);
    return fmt::format("{} to {}{}{}{}", s.lowest, s.highest, *s.unit == '\0' ? "" : " ", s.unit, steps);
}

std::vector<const setting *> settings_of(std::string_view family)
{
    std::vector<const setting *> list;
    for (const setting &s : all_settings()) {
        if (s.family == family)
            list.push_back(&s);
    }
    return list;
}

const setting &find_setting(const std::string &family, const std::string &what)
{
    std::string known;
    for (const setting *s : settings_of(family)) {
        if (!is_named(*s) || s->what == what)
            return *s;
        known += fmt::format("{}{}", known.empty() ? "" : ", ", s->what);
    }
    const std::string instead = what.empty() ? "" : fmt::format(", not \"{}\"", printable(what));
    throw usage_error(fmt::format("{0} set takes {1}{2} and a value{3}; veksmi help {0} set tells more", family,
                                  settings_of(family).size() == 1 ? "" : "one of ", known, instead));
}

struct change {
    const setting &what;
    std::string text; // of the new value; empty where none was given
};

bool is_usual(const setting &s, std::int64_t number)
{
    const double shown = static_cast<double>(number) * present_units().scale(s.measured_in);
    return (s.usual_lowest == 0 && s.usual_highest == 0) || (shown >= s.usual_lowest && shown <= s.usual_highest);
}

// The words behind "FAMILY set".
change parse_change(const std::string &family, const std::vector<std::string> &words)
{
    const setting &s = find_setting(family, words.empty() ? "" : words.front());
    const std::size_t values = words.size() - (is_named(s) ? 1 : 0);
    if (values == 0)
        return {s, ""};
    const auto number = values == 1 ? to_number<std::int64_t>(words.back()) : std::nullopt;
    if (!number || *number < s.lowest || *number > s.highest || *number % s.step != 0) {
        const std::string given =
            values == 1 ? fmt::format(", not \"{}\"", printable(words.back())) : fmt::format("; {} were given", values);
        throw usage_error(fmt::format("{} takes one value ({}){}", command_of(s), values_of(s), given));
    }
    return {s, std::to_string(*number)};
}

std::string usual_of(const setting &s)
{
    return s.usual_lowest == s.usual_highest ? fmt::format("{:g}", s.usual_lowest)
                                             : fmt::format("{:g} to {:g}", s.usual_lowest, s.usual_highest);
}

std::string number_text(const json &number, const setting &s)
{
    return number.is_null() ? "N/A" : fmt::format("{}{}{}", number.dump(), *s.unit == '\0' ? "" : " ", s.unit);
}

std::string words_of_library(const answer &gpu)
{
    std::string text = gpu.printed;
    std::replace(text.begin(), text.end(), '\n', ' ');
    const value clean = text_value(text);
    return is_present(clean) ? printable(text_of(clean)) : std::string();
}

json request_for(const setting &s)
{
    return {{"setting", &s - all_settings().data()}};
}

// Without a value: what it is now, what it may be, and how to go on.
int show_settings(const std::vector<const setting *> &shown, session &gpus)
{
    int status = exit_done;
    for (const setting *s : shown) {
        const answers said = gpus.ask({.more = {{"set", request_for(*s)}}});
        for (const answer &gpu : said) {
            if (gpu.state == gpu_state::ok)
                print("GPU {}: the {} is {}; {} takes {}\n", gpu.index, s->description,
                      number_text(gpu.more.at("set").at("old"), *s), command_of(*s), values_of(*s));
            else if (gpu.state == gpu_state::asleep && s == shown.front())
                print("GPU {}: asleep; --wake wakes it\n", gpu.index);
        }
        status = std::max(status, s == shown.back() ? status_of(said) : exit_done);
    }
    print("To change it, as root: veksmi -i GPU {} VALUE\n",
          shown.size() == 1 ? command_of(*shown.front()) : fmt::format("{} set WHAT", shown.front()->family));
    return status;
}

void print_outcome(const setting &s, const std::string &text, const answer &gpu)
{
    const json &outcome = gpu.more.at("set");
    const json &now = outcome.at("new");
    const bool differs = !now.is_null() && now != to_number<std::int64_t>(text).value_or(0);
    print("GPU {}: set the {} to {}{}{} ({} -> {})\n", gpu.index, s.description, text, *s.unit == '\0' ? "" : " ",
          s.unit, number_text(outcome.at("old"), s), number_text(now, s));
    if (differs)
        complain(
            fmt::format("GPU {}: the {} reads {} now, not {}", gpu.index, s.description, number_text(now, s), text));
}

// UNANSWERED is told where the GPU did not answer.
void print_json(const setting &s, const std::string &text, const answer &gpu, const char *unanswered)
{
    json object = object_of(gpu);
    object["setting"] = command_of(s);
    object["wanted"] = to_number<std::int64_t>(text).value_or(0);
    const bool told = gpu.state == gpu_state::ok;
    object["old"] = told ? gpu.more.at("set").at("old") : json();
    object["new"] = told ? gpu.more.at("set").at("new") : json();
    object["result"] = told ? gpu.more.at("set").at("result") : json();
    const std::string words = words_of_library(gpu);
    object["message"] = told ? (words.empty() ? json() : json(words)) : json(unanswered);
    print_document(json::array({std::move(object)}));
}

} // namespace

void check_setting(const char *family, const options &wanted)
{
    const bool without_value = settings_of(family).size() > 1 ? wanted.setting.size() < 2 : wanted.setting.empty();
    if (wanted.shape == format::csv || (wanted.shape == format::json && without_value))
        throw usage_error("a set command has the formats table and, with a value, json");
    if (settings_of(family).size() > 1 && wanted.setting.empty())
        return;
    const auto [s, text] = parse_change(family, wanted.setting);
    if (text.empty() || wanted.yes || is_usual(s, *to_number<std::int64_t>(text)))
        return;
    throw usage_error(
        fmt::format("{} {} leaves the usual range ({}) and can cost the hardware; --yes sets it all the same",
                    command_of(s), text, usual_of(s)));
}

const char *reset_of(std::string_view family, const char *&what)
{
    for (const setting *s : settings_of(family)) {
        if (s->reset != nullptr) {
            what = s->what;
            return s->reset;
        }
    }
    return nullptr;
}

bool has_settings(std::string_view family)
{
    return !settings_of(family).empty();
}

std::string settings_help(const std::string &family, const std::string &what)
{
    std::vector<const setting *> shown = settings_of(family);
    if (!what.empty())
        shown = {&find_setting(family, what)};
    std::size_t width = 0;
    for (const setting *s : shown)
        width = std::max(width, command_of(*s).size());
    std::string help = fmt::format("veksmi [-i GPU] {} set {}VALUE: changes a value, as root\n", family,
                                   is_named(*shown.front()) ? "WHAT " : "");
    for (const setting *s : shown)
        help += fmt::format("  {:<{}}  {}: {}{}{}\n", command_of(*s), width, s->description, values_of(*s),
                            s->pause == 0 ? "" : "; blocks ", s->pause == 0 ? "" : pause_of(*s));
    const char *reset = nullptr;
    if (what.empty() && reset_of(family, reset) != nullptr)
        help += fmt::format("veksmi [-i GPU] {} reset: back to the driver's own control, as root\n", family);
    help += "Without VALUE the present one is shown; outside the usual range it takes --yes.\n";
    return help;
}

candidates next_of_setting(const std::string &family, const std::vector<std::string> &words)
{
    candidates found;
    for (const setting *s : settings_of(family)) {
        const std::string explained = fmt::format("{}: {}", s->description, values_of(*s));
        if (is_named(*s) && words.empty())
            found.push_back({s->what, explained});
        const bool value_is_next = is_named(*s) ? words.size() == 1 && words.front() == s->what : words.empty();
        const bool is_switch = s->highest - s->lowest == 1;
        for (std::int64_t i = s->lowest; value_is_next && is_switch && i <= s->highest; ++i)
            found.push_back({std::to_string(i), explained});
    }
    return found;
}

int change_setting(const char *family, const options &wanted, session &gpus)
{
    if (settings_of(family).size() > 1 && wanted.setting.empty())
        return show_settings(settings_of(family), gpus);
    const auto [s, text] = parse_change(family, wanted.setting);
    if (text.empty())
        return show_settings({&s}, gpus);
    const answers known = gpus.ask({});
    if (known.empty())
        throw no_gpu_found();
    if (known.size() > 1)
        throw usage_error("there is more than one GPU: choose one with -i; veksmi list shows them");
    const answer &chosen = known.front();
    if (chosen.driverless)
        throw usage_error("nothing can be set without the driver");
    if (chosen.state == gpu_state::asleep)
        throw usage_error(fmt::format("GPU {} is asleep, and nothing was set; --wake wakes it", chosen.index));
    if (chosen.state != gpu_state::ok) {
        if (wanted.shape == format::json)
            print_json(s, text, chosen, "nothing was set");
        return status_of(known);
    }
    if (s.pause > 0 && geteuid() == 0 && wanted.shape == format::table) {
        print("GPU {}: setting the {} blocks for {}\n", chosen.index, s.description, pause_of(s));
        flush_output();
    }
    json asked = request_for(s);
    asked["text"] = text;
    const answers said = gpus.ask({.more = {{"set", asked}}, .extra = std::chrono::milliseconds(s.pause)});
    const answer &gpu = said.front();
    if (wanted.shape == format::json)
        print_json(s, text, gpu, "it is not known whether the value was taken");
    if (gpu.state != gpu_state::ok) {
        complain(fmt::format("GPU {}: it is not known whether the {} was set", gpu.index, s.description));
        return status_of(said);
    }
    const int result = gpu.more.at("set").at("result").get<int>();
    if (result == VEKML_SUCCESS && wanted.shape == format::table)
        print_outcome(s, text, gpu);
    else if (result != VEKML_SUCCESS) {
        const std::string reason = words_of_library(gpu);
        complain(fmt::format("GPU {}: the {} was not set: {}", gpu.index, s.description,
                             reason.empty() ? meaning(result) : reason));
    }
    return exit_status(result);
}
