// SPDX-License-Identifier: Apache-2.0
#include "output.h"

#include "readings/standard_streams.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

bool coloured = false;
int lost = 0; // the error that cut the output

bool wants_colour()
{
    const char *terminal = std::getenv("TERM"), *refused = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) == 1 && (refused == nullptr || *refused == '\0') && terminal != nullptr &&
           std::strcmp(terminal, "dumb") != 0;
}

std::size_t length_of_first(std::string_view text)
{
    std::size_t length = 1;
    while (length < text.size() && (text[length] & 0xc0) == 0x80)
        ++length;
    return length;
}

// Columns of the first character; what the terminal's own rules are, the C library knows.
std::size_t width_of_first(std::string_view text)
{
    wchar_t wide = 0;
    std::mbstate_t shift{};
    const std::size_t length = std::mbrtowc(&wide, text.data(), text.size(), &shift);
    if (length == 0 || length > text.size())
        return 1;
    return static_cast<std::size_t>(std::max(wcwidth(wide), 0));
}

std::string padded(const std::string &text, std::size_t width, table::align side)
{
    const std::string blanks(width - std::min(width, width_of(text)), ' ');
    return side == table::align::right ? blanks + text : text + blanks;
}

// TEXT in lines of at most WIDTH columns, broken at blanks where there are some.
std::vector<std::string> wrapped(std::string_view text, std::size_t width)
{
    std::vector<std::string> lines;
    while (width_of(text) > width) {
        std::size_t end = 0;
        for (std::size_t at = 0, column = 0; at < text.size();) {
            column += width_of_first(text.substr(at));
            if (column > width)
                break;
            at += length_of_first(text.substr(at));
            end = at;
        }
        end = std::max<std::size_t>(end, 1);
        const std::size_t blank = text[end] == ' ' ? end : text.substr(0, end).rfind(' ');
        const std::size_t cut = blank == text.npos || blank == 0 ? end : blank;
        lines.emplace_back(text.substr(0, text.find_last_not_of(' ', cut - 1) + 1));
        text.remove_prefix(cut);
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    }
    lines.emplace_back(text);
    return lines;
}

} // namespace

void open_output(format shape)
{
    // Widths are the terminal's business, decimal points are not.
    if (std::setlocale(LC_CTYPE, "") == nullptr || MB_CUR_MAX == 1)
        std::setlocale(LC_CTYPE, "C.UTF-8");
    coloured = shape == format::table && wants_colour();
}

bool flush_output()
{
    if (std::fflush(stdout) != 0 && lost == 0)
        lost = errno;
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
    return STDOUT_FILENO;
}

void put(std::string_view text)
{
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() && lost == 0)
        lost = errno;
}

void remark(std::string_view text)
{
    flush_output();
    tell_error(text);
}

void complain(std::string_view text)
{
    remark(fmt::format("veksmi: {}", text));
}

void put_wrapped(std::string_view text)
{
    constexpr std::string_view gap = "  ";
    const std::size_t width = output_width();
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        const std::size_t last_gap = line.rfind(gap);
        const bool has_column = last_gap != line.npos && last_gap < width / 2;
        const std::size_t indent = width_of(line) <= width ? 0 : has_column ? last_gap + gap.size() : 2 * gap.size();
        std::string before(line.substr(0, has_column ? indent : 0));
        for (const std::string &part : wrapped(line.substr(before.size()), width - indent)) {
            put(before + part + "\n");
            before.assign(indent, ' ');
        }
    }
}

std::size_t output_width()
{
    winsize size{};
    if (isatty(STDOUT_FILENO) != 1 || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return 80;
    return std::clamp<std::size_t>(size.ws_col, 60, 200);
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

std::size_t width_of(std::string_view text)
{
    std::size_t width = 0;
    for (; !text.empty(); text.remove_prefix(length_of_first(text)))
        width += width_of_first(text);
    return width;
}

std::string shortened(std::string_view text, std::size_t width)
{
    if (width_of(text) <= width)
        return std::string(text);
    std::size_t end = 0;
    for (std::size_t column = 1; end < text.size();) { // one for the sign
        column += width_of_first(text.substr(end));
        if (column > width)
            break;
        end += length_of_first(text.substr(end));
    }
    return std::string(text.substr(0, end)) + "…";
}

void table::leave_out(std::string_view column)
{
    const auto is_meant = [&](const table::heading &h) { return h.first == column; };
    const auto at = std::find_if(headings_.begin(), headings_.end(), is_meant) - headings_.begin();
    headings_.erase(headings_.begin() + at);
    for (auto &row : rows_)
        row.erase(row.begin() + at);
}

std::vector<std::size_t> table::widths() const
{
    constexpr std::size_t narrowest = 8, gap = 2;
    std::vector<std::size_t> widths;
    std::size_t whole = 0;
    for (std::size_t column = 0; column < headings_.size(); ++column) {
        std::size_t width = width_of(headings_[column].first);
        for (const auto &row : rows_)
            width = std::max(width, width_of(row[column]));
        widths.push_back(width);
        whole += width + gap;
    }
    whole -= std::min(whole, gap);
    while (whole > output_width()) {
        std::size_t widest = widths.size();
        for (std::size_t column = 0; column < widths.size(); ++column) {
            const bool gives_way = headings_[column].second == align::left && widths[column] > narrowest;
            if (gives_way && (widest == widths.size() || widths[column] >= widths[widest]))
                widest = column;
        }
        if (widest == widths.size())
            break;
        --widths[widest];
        --whole;
    }
    return widths;
}

void table::print() const
{
    const std::vector<std::size_t> width = widths();
    const std::size_t last = headings_.size() - 1;
    const auto line = [&](auto &&text_at) {
        std::string text;
        for (std::size_t column = 0; column < headings_.size(); ++column)
            text += padded(shortened(text_at(column), width[column]), width[column], headings_[column].second) + "  ";
        text.erase(text.find_last_not_of(' ') + 1);
        return text;
    };
    put(paint(colour::bold, line([&](std::size_t column) { return headings_[column].first; })) + "\n");
    for (const auto &row : rows_) {
        const std::vector<std::string> ends = wraps_ ? wrapped(row[last], width[last]) : std::vector{row[last]};
        for (std::size_t i = 0; i < ends.size(); ++i)
            put(line([&](std::size_t column) {
                    return column == last ? ends[i] : i == 0 ? row[column] : std::string();
                }) +
                "\n");
    }
}

std::string shown(const answer &gpu, const field &f)
{
    return human(gpu[f], f.in);
}

std::string plain(const answer &gpu, const field &f)
{
    const value &held = gpu[f];
    return is_present(held) ? printable(text_of(held)) : human(held, f.in);
}

std::string heading_of(const answer &gpu, const field_list &known)
{
    std::string heading = fmt::format("GPU {}", gpu.index);
    for (const field *f : known)
        heading += is_present(gpu[*f]) ? "  " + shown(gpu, *f) : "";
    return heading;
}

std::string csv_row(const std::vector<std::string> &cells)
{
    std::string row;
    for (const std::string &text : cells) {
        std::string quoted = printable(text);
        if (quoted.find_first_of(",\"") != quoted.npos) {
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

std::string csv_values(const field_list &fields, const answer &gpu)
{
    std::vector<std::string> cells;
    for (const field *f : fields)
        cells.push_back(text_of(gpu[*f]));
    return csv_row(cells);
}

void print_json(const field_list &fields, const answers &gpus, const json_extras &extras)
{
    put(json_document(fields, gpus, extras) + "\n");
}

void print_readings(const options &wanted, const field_list &fields, const answers &gpus)
{
    if (wanted.shape == format::json)
        return print_json(fields, gpus);
    if (wanted.shape == format::csv) {
        put(csv_header(fields));
        for (const answer &gpu : gpus)
            put(csv_values(fields, gpu));
        return;
    }
    std::size_t label_width = 0, column_width = 6;
    for (const field *f : fields) {
        label_width = std::max(label_width, width_of(label(*f)));
        for (const answer &gpu : gpus)
            column_width = std::max(column_width, width_of(shown(gpu, *f)));
    }
    const std::size_t room = output_width() - std::min(output_width(), label_width);
    const std::size_t side_by_side = std::max<std::size_t>(1, room / (column_width + 2));
    for (std::size_t first = 0; first < gpus.size(); first += side_by_side) {
        const std::size_t end = std::min(first + side_by_side, gpus.size());
        std::vector<table::heading> headings = {{"", table::align::left}};
        for (std::size_t i = first; i < end; ++i)
            headings.emplace_back(fmt::format("GPU {}", gpus[i].index), table::align::left);
        table block(headings);
        for (const field *f : fields) {
            std::vector<std::string> row = {label(*f)};
            for (std::size_t i = first; i < end; ++i)
                row.push_back(shown(gpus[i], *f));
            block.add(row);
        }
        if (first > 0)
            put("\n");
        block.print();
    }
}
