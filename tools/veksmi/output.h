// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "fields.h"
#include "frame.h"

#include <fmt/format.h>
#include <string>
#include <string_view>
#include <utility>

// The library prints lines of its own on standard output. They stay there among tables; for CSV and JSON standard
// output is handed over to standard error and ours goes to the descriptor that it had.
void open_output(format shape);
// Ends a line that the library left unfinished.
void end_library_line();
// False when the text cannot go out any more.
bool flush_output();
// Flushes for the last time; an exit status when what was written got lost, else STATUS. A reader that went away early
// took what it wanted.
int close_output(int status);

int output_descriptor();
void put(std::string_view text);
template <typename... Arguments>
void print(fmt::format_string<Arguments...> pattern, Arguments &&...arguments)
{
    put(fmt::format(pattern, std::forward<Arguments>(arguments)...));
}
void complain(std::string_view text); // one line on standard error

bool is_coloured();
enum class colour { bold, green, yellow, red };
std::string paint(colour c, std::string_view text); // as it is where nothing is coloured

// A table whose columns are as wide as they have to be.
class table {
public:
    enum class align { left, right };
    explicit table(std::vector<std::pair<std::string, align>> headings) : headings_(std::move(headings)) {}
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    void print() const;

private:
    std::vector<std::pair<std::string, align>> headings_;
    std::vector<std::vector<std::string>> rows_;
};

std::string cell(const value &v); // text or "N/A"
std::string with_unit(const field &f, const value &v);
std::string csv_row(const std::vector<std::string> &cells);
std::string csv_header(const field_list &fields);
std::string csv_values(const field_list &fields, gpu &g);

// The readings of every GPU in the wanted format: as tables, a row per field.
void print_readings(const options &, const field_list &, gpu_list &);

struct json_extras {
    bool processes = false;
    bool codecs = false;
    std::vector<std::pair<std::string, value>> head{}; // beside "gpus"
};
std::string json_document(const field_list &, const std::vector<gpu *> &, const json_extras & = {});
std::vector<gpu *> all_of(gpu_list &);
void print_json(const field_list &, gpu_list &, const json_extras & = {});
