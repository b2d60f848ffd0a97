// SPDX-License-Identifier: Apache-2.0
#include "output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdio_ext.h>
#include <unistd.h>

namespace {

std::FILE *out = stdout;
bool coloured = false;
char library_lines[1 << 16];
int lost = 0; // the error that cut the output

bool wants_colour()
{
    const char *terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr && terminal != nullptr &&
           std::strcmp(terminal, "dumb") != 0;
}

std::size_t width_of(std::string_view text)
{
    // Continuation bytes of UTF-8 take no column of their own.
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

std::string padded(const std::string &text, std::size_t width, table::align side)
{
    const std::string blanks(width - std::min(width, width_of(text)), ' ');
    return side == table::align::left ? text + blanks : blanks + text;
}

std::string heading_of(gpu &g)
{
    return fmt::format("GPU {}", g.index());
}

} // namespace

void open_output(format shape)
{
    std::setvbuf(stdout, library_lines, _IOFBF, sizeof library_lines);
    if (shape == format::table) {
        coloured = wants_colour();
        return;
    }
    const int kept = dup(STDOUT_FILENO);
    out = kept < 0 ? nullptr : fdopen(kept, "w");
    lost = out == nullptr ? errno : 0;
    dup2(STDERR_FILENO, STDOUT_FILENO);
}

void end_library_line()
{
    const std::size_t pending = __fpending(stdout);
    if (pending > 0 && library_lines[pending - 1] != '\n')
        std::fputc('\n', stdout);
}

bool flush_output()
{
    if (out != nullptr && std::fflush(out) != 0 && lost == 0)
        lost = errno;
    if (out != stdout)
        std::fflush(stdout);
    return lost == 0;
}

int close_output(int status)
{
    if (flush_output() || lost == EPIPE)
        return status;
    complain(fmt::format("cannot write: {}", std::strerror(lost)));
    return exit_status(VEKML_ERROR_NODE_IO);
}

int output_descriptor()
{
    return out == nullptr ? -1 : fileno(out);
}

void put(std::string_view text)
{
    if (out != nullptr && std::fwrite(text.data(), 1, text.size(), out) != text.size() && lost == 0)
        lost = errno;
}

void complain(std::string_view text)
{
    flush_output();
    fmt::print(stderr, "veksmi: {}\n", text);
}

bool is_coloured()
{
    return coloured;
}

std::string paint(colour c, std::string_view text)
{
    constexpr const char *codes[] = {"1", "32", "33", "31"};
    return coloured ? fmt::format("\033[{}m{}\033[0m", codes[static_cast<int>(c)], text) : std::string(text);
}

void table::print() const
{
    std::vector<std::size_t> widths;
    for (std::size_t column = 0; column < headings_.size(); ++column) {
        std::size_t width = width_of(headings_[column].first);
        for (const auto &row : rows_)
            width = std::max(width, width_of(row[column]));
        widths.push_back(width);
    }
    const auto line = [&](auto &&text_at) {
        std::string text;
        for (std::size_t column = 0; column < headings_.size(); ++column)
            text += padded(text_at(column), widths[column], headings_[column].second) + "  ";
        text.erase(text.find_last_not_of(' ') + 1);
        return text;
    };
    put(paint(colour::bold, line([&](std::size_t column) { return headings_[column].first; })) + "\n");
    for (const auto &row : rows_)
        put(line([&](std::size_t column) { return row[column]; }) + "\n");
}

std::string cell(const value &v)
{
    return is_present(v) ? text_of(v) : "N/A";
}

std::string with_unit(const field &f, const value &v)
{
    return is_present(v) && *f.unit != '\0' ? text_of(v) + " " + f.unit : cell(v);
}

std::string csv_row(const std::vector<std::string> &cells)
{
    std::string row;
    for (const std::string &text : cells) {
        std::string quoted = text;
        if (text.find_first_of(",\"") != text.npos) {
            for (std::size_t at = 0; (at = quoted.find('"', at)) != quoted.npos; at += 2)
                quoted.insert(at, 1, '"');
            quoted.insert(0, 1, '"').append(1, '"');
        }
        if (&text != cells.data())
            row += ',';
        row += quoted;
    }
    return row + "\n";
}

std::string csv_header(const field_list &fields)
{
    std::vector<std::string> cells;
    for (const field *f : fields)
        cells.emplace_back(f->key);
    return csv_row(cells);
}

std::string csv_values(const field_list &fields, gpu &g)
{
    std::vector<std::string> cells;
    for (const field *f : fields)
        cells.push_back(text_of(f->get(g)));
    return csv_row(cells);
}

std::vector<gpu *> all_of(gpu_list &gpus)
{
    std::vector<gpu *> list;
    for (gpu &g : gpus)
        list.push_back(&g);
    return list;
}

void print_json(const field_list &fields, gpu_list &gpus, const json_extras &extras)
{
    put(json_document(fields, all_of(gpus), extras) + "\n");
}

void print_readings(const options &wanted, const field_list &fields, gpu_list &gpus)
{
    if (wanted.shape == format::json)
        return print_json(fields, gpus);
    if (wanted.shape == format::csv) {
        put(csv_header(fields));
        for (gpu &g : gpus)
            put(csv_values(fields, g));
        return;
    }
    constexpr std::size_t side_by_side = 3;
    for (std::size_t first = 0; first < gpus.size(); first += side_by_side) {
        const std::size_t end = std::min(first + side_by_side, gpus.size());
        std::vector<std::pair<std::string, table::align>> headings = {{"", table::align::left}};
        for (std::size_t i = first; i < end; ++i)
            headings.emplace_back(heading_of(gpus[i]), table::align::left);
        table block(headings);
        for (const field *f : fields) {
            std::vector<std::string> row = {label(*f)};
            for (std::size_t i = first; i < end; ++i)
                row.push_back(with_unit(*f, f->get(gpus[i])));
            block.add(row);
        }
        if (first > 0)
            put("\n");
        block.print();
    }
}
