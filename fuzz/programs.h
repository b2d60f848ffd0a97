// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/** Lets the client take a command line, an argument a line, up to where it would start to work. */
void take_arguments(const std::string &lines);
/** Lets it offer what can stand for the last of them. */
void complete(const std::string &lines);
/** Masks a text for a report, as what its first byte says it is. */
void mask(const std::string &input);

/** Sends the bytes to an exporter that serves everybody, and looks at what comes back. */
void run_request(const std::string &bytes);
/** The same for one that serves a single user, whose password nobody knows. */
void run_login(const std::string &bytes);
/** Reads the text as the file of --web-config. */
void run_web_config(const std::string &text);
