// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>

// A directory of plain files and links that ends up as a .tar.gz. Paths are those of a host, "/sys/class/drm/card0".
class report_archive {
public:
    // What is there already stays as it is.
    void add(const std::string &path, std::string text, unsigned mode = 0644);
    void add_directory(const std::string &path);
    void add_link(const std::string &path, const std::string &target); // TARGET as it stands
    void link_to(const std::string &path, const std::string &other);   // relative, as the kernel makes them
    bool has(const std::string &path) const { return entries_.contains(path); }

    // All of it below the directory TOP; throws std::runtime_error.
    std::string packed(const std::string &top) const;

private:
    enum class kind { directory, file, link };
    struct entry {
        kind what;
        std::string content;
        unsigned mode;
    };
    std::map<std::string, entry> entries_{};
};
