// SPDX-License-Identifier: Apache-2.0
// The client, run on a simulated host.
#pragma once

#include "build_paths.h"
#include "sim_host.h"

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

using nlohmann::json;

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

inline pid_t parent_of(pid_t process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("PPid:", 0) == 0)
            return std::stoi(line.substr(5));
    }
    return 0;
}

// Each call starts the client and its readers, a tenth of a second of work under sanitizers: the cases that try every
// command, or refuse dozens of values, take some seconds.
class client_host : public sim_host {
protected:
    run_result veksmi(const std::string &arguments)
    {
        std::vector<std::string> command = words(arguments);
        std::replace(command.begin(), command.end(), std::string("''"), std::string());
        command.insert(command.begin(), VEKSMI_PATH);
        return run_on_host(command);
    }

    // The only document on standard output; a null one fails the test.
    json document(const std::string &arguments, int status = 0)
    {
        const run_result result = veksmi(arguments);
        EXPECT_EQ(result.status, status) << arguments << "\n" << result.err;
        json parsed = json::parse(result.out, nullptr, false);
        EXPECT_TRUE(parsed.is_object() && parsed.value("schema", 0) == 2 && parsed["gpus"].is_array())
            << arguments << "\n"
            << result.out;
        return parsed;
    }
};
