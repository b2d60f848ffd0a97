// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "frame.h"

#include <fmt/format.h>
#include <string>
#include <string_view>
#include <utility>

void open_output(format shape);
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
void remark(std::string_view text);   // one line on standard error
void complain(std::string_view text); // likewise, in the client's name

void put_wrapped(std::string_view text); // what is too wide goes on below, behind the line's last gap
std::size_t output_width();              // columns: the terminal's, 60 to 200; 80 where there is none

bool is_coloured();
enum class colour { bold, green, yellow, red };
std::string paint(colour c, std::string_view text); // as it is where nothing is coloured
std::size_t width_of(std::string_view text);        // in columns
std::string shortened(std::string_view text, std::size_t width);

// A table whose columns are as wide as they have to be, and no wider together than the output: the widest columns that
// may be cut give way, or the last one goes on in the next line.
class table {
public:
    enum class align { left, whole, right }; // what stands left may be cut, unless it says nothing then
    using heading = std::pair<std::string, align>;
    explicit table(std::vector<heading> headings) : headings_(std::move(headings)) {}
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    void wrap_last() { wraps_ = true; }
    void leave_out(std::string_view column); // by its heading
    void print() const;

private:
    std::vector<std::size_t> widths() const;
    std::vector<heading> headings_;
    bool wraps_ = false;
    std::vector<std::vector<std::string>> rows_;
};

std::string shown(const answer &gpu, const field &f); // with its unit
std::string plain(const answer &gpu, const field &f); // without; what became of a GPU is said
// "GPU 0  VEK M310  0000:03:00.0": what is known of it.
std::string heading_of(const answer &gpu, const field_list &known);
std::string csv_row(const std::vector<std::string> &cells);
std::string csv_header(const field_list &fields);
std::string csv_values(const field_list &fields, const answer &gpu);

// The readings of every GPU in the wanted format: as tables, a row per field.
void print_readings(const options &, const field_list &, const answers &);

struct json_extras {
    bool processes = false;
    bool codecs = false;
    std::vector<std::pair<std::string, value>> head{}; // beside "gpus"
};
json object_of(const answer &gpu); // who it is and how it fares, to begin with
// The document of a command that shows no fields; HEAD stands before the GPUs.
void print_document(json gpus, const json &head = json::object(), json units = json::object());
std::string json_document(const field_list &, const answers &, const json_extras & = {});
std::string json_text(const json &document); // in one line
json json_value(const value &v);
void print_json(const field_list &, const answers &, const json_extras & = {});
