// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/** Sends the bytes to an exporter that serves everybody, and looks at what comes back. */
void run_request(const std::string &bytes);

/** The same for one that serves a single user, whose password nobody knows. */
void run_login(const std::string &bytes);

/** Reads the text as the file of --web-config. */
void run_web_config(const std::string &text);
