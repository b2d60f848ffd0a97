// SPDX-License-Identifier: Apache-2.0
// The client, run on a simulated host.
#pragma once

#include "build_paths.h"
#include "sim_host.h"
#include "text.h"

#include <algorithm>
#include <nlohmann/json.hpp>

using nlohmann::json;

// Each call starts the client and its readers, a tenth of a second of work under sanitizers: the cases that try every
// command, or refuse dozens of values, take some seconds.
class client_host : public sim_host {
protected:
    run_result veksmi(const std::string &arguments, const environment &settings = {})
    {
        std::vector<std::string> command = words(VEKSMI_PATH + (" " + arguments));
        std::replace(command.begin(), command.end(), std::string("''"), std::string());
        return run_on_host(command, settings);
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

    // The keys of all fields, as --fields takes them.
    std::string all_fields()
    {
        std::vector<std::string> keys = lines(veksmi("query --help-fields --format csv").out);
        for (std::string &key : keys)
            key.resize(key.find(','));
        return joined({keys.begin() + 1, keys.end()});
    }
};
