// SPDX-License-Identifier: Apache-2.0
// Texts taken apart and put together.
#pragma once

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

inline std::vector<std::string> words(const std::string &line)
{
    std::istringstream stream(line);
    return {std::istream_iterator<std::string>(stream), {}};
}

inline std::vector<std::string> lines(const std::string &text, char end = '\n')
{
    std::istringstream stream(text);
    std::vector<std::string> list;
    for (std::string line; std::getline(stream, line, end);)
        list.push_back(line);
    return list;
}

inline std::string joined(const std::vector<std::string> &texts, const std::string &between = ",")
{
    std::string all;
    for (const std::string &text : texts)
        all += (&text == texts.data() ? "" : between) + text;
    return all;
}
