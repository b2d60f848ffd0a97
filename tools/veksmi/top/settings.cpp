// SPDX-License-Identifier: Apache-2.0
#include "settings.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

namespace top {
namespace {

using json = nlohmann::ordered_json;

constexpr std::size_t longest_file = 4096;

// The place of the text under KEY among NAMES.
template <typename Value, std::size_t Count>
Value named(const json &document, const char *key, const char *const (&names)[Count])
{
    const auto text = document.at(key).get<std::string>();
    const auto *const found = std::find(std::begin(names), std::end(names), text);
    if (found == std::end(names))
        throw std::out_of_range(key);
    return static_cast<Value>(found - std::begin(names));
}

settings checked(const json &document)
{
    settings chosen;
    chosen.interval = std::chrono::milliseconds(document.at("interval_ms").get<std::int32_t>());
    if (chosen.interval < shortest_interval || chosen.interval > longest_interval)
        throw std::out_of_range("interval");
    chosen.span = std::chrono::seconds(document.at("span_s").get<std::int32_t>());
    if (std::find(std::begin(spans), std::end(spans), chosen.span) == std::end(spans))
        throw std::out_of_range("span");
    chosen.sort = named<column>(document, "sort", column_names);
    chosen.then_sort = named<column>(document, "then_sort", column_names);
    chosen.reversed = document.at("reversed").get<bool>();
    if (document.contains("glyphs"))
        chosen.drawn_with = named<glyphs>(document, "glyphs", glyph_names);
    return chosen;
}

// The text of a regular file; nothing, with errno, when there is none. Never waits for a pipe's writer.
std::optional<std::string> read_file(const std::string &path)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0)
        return std::nullopt;
    std::string text(longest_file + 1, '\0');
    const ssize_t length = read(file, text.data(), text.size());
    const int error = errno;
    close(file);
    errno = error;
    if (length < 0)
        return std::nullopt;
    text.resize(static_cast<std::size_t>(length));
    return text;
}

} // namespace

std::string text_of(const settings &chosen)
{
    json document = {{"interval_ms", chosen.interval.count()},
                     {"span_s", chosen.span.count()},
                     {"sort", column_names[static_cast<std::size_t>(chosen.sort)]},
                     {"then_sort", column_names[static_cast<std::size_t>(chosen.then_sort)]},
                     {"reversed", chosen.reversed}};
    if (chosen.drawn_with)
        document["glyphs"] = glyph_names[static_cast<std::size_t>(*chosen.drawn_with)];
    return document.dump() + "\n";
}

std::optional<settings> settings_from(const std::string &text)
{
    try {
        return checked(json::parse(text));
    } catch (const std::exception &) {
        return std::nullopt;
    }
}

std::string settings_path(const char *state_home, const char *home)
{
    if (state_home != nullptr && *state_home == '/')
        return std::string(state_home) + "/veksmi/top";
    if (home != nullptr && *home == '/')
        return std::string(home) + "/.local/state/veksmi/top";
    return {};
}

settings load_settings(const std::string &path, std::string &trouble)
{
    if (path.empty())
        return {};
    const auto text = read_file(path);
    if (!text) {
        if (errno != ENOENT && errno != ENOTDIR)
            trouble = std::string("settings not read: ") + std::strerror(errno);
        return {};
    }
    if (const auto chosen = text->size() > longest_file ? std::nullopt : settings_from(*text))
        return *chosen;
    trouble = "settings ignored: " + path + " makes no sense";
    return {};
}

bool save_settings(const std::string &path, const settings &chosen)
{
    if (path.empty())
        return false;
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    const std::string text = text_of(chosen), fresh = path + ".new";
    const int file = open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
    if (file < 0)
        return false;
    const bool whole = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(file);
    if (whole && std::rename(fresh.c_str(), path.c_str()) == 0)
        return true;
    unlink(fresh.c_str());
    return false;
}

} // namespace top
