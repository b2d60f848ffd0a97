// SPDX-License-Identifier: Apache-2.0
// The requests a card node answers.
#include "requests.h"

#include "../card_requests.h"
#include "faults.h"
#include "libc.h"
#include "tree.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace veksim {
namespace {

struct information_block {
    std::uint64_t address;
    std::uint32_t size;
    std::uint32_t selector;
};
static_assert(sizeof(information_block) == 16);

struct version_block {
    int major, minor, patch;
    std::size_t name_length;
    char *name;
    std::size_t date_length;
    char *date;
    std::size_t description_length;
    char *description;
};
constexpr std::size_t largest_reply = 1 << 20; // in text
constexpr unsigned version_request = _IOWR('d', 0x00, version_block);

// The caller first asks with length 0, then comes back with room for that length.
void give_text(const char *text, char *destination, std::size_t *length)
{
    std::size_t whole = strlen(text);
    if (destination != nullptr && *length != 0)
        memcpy(destination, text, std::min(*length, whole));
    *length = whole;
}

int answer_version(version_block *block)
{
    block->major = 1;
    block->minor = 4;
    block->patch = 0;
    give_text("vekgpu", block->name, &block->name_length);
    give_text("20240101", block->date, &block->date_length);
    give_text("VEKGPU DRM driver", block->description, &block->description_length);
    return 0;
}

class reply_writer {
public:
    reply_writer(void *destination, std::size_t room) : at_(static_cast<char *>(destination)), room_(room) {}

    void put(const void *bytes, std::size_t size)
    {
        size = std::min(size, room_);
        memcpy(take(size), bytes, size);
    }

    void zero(std::size_t size)
    {
        size = std::min(size, room_);
        memset(take(size), 0, size);
    }

private:
    char *take(std::size_t size)
    {
        char *taken = at_;
        at_ += size;
        room_ -= size;
        return taken;
    }

    char *at_;
    std::size_t room_;
};

void put_numbers(reply_writer &reply, char *values, std::size_t width)
{
    char *rest = values;
    for (;;) {
        char *end = nullptr;
        errno = 0;
        std::uint64_t value = *(rest + strspn(rest, " \t")) == '-' ? static_cast<std::uint64_t>(strtoll(rest, &end, 0))
                                                                   : strtoull(rest, &end, 0);
        if (end == rest)
            return;
        reply.put(&value, width); // both architectures are little-endian
        rest = end;
    }
}

void put_hex(reply_writer &reply, const char *digits)
{
    unsigned value = 0;
    int used = 0;
    while (sscanf(digits, " %2x%n", &value, &used) == 1) {
        unsigned char byte = static_cast<unsigned char>(value);
        reply.put(&byte, 1);
        digits += used;
    }
}

void put_text(reply_writer &reply, char *arguments)
{
    char *text = nullptr;
    std::size_t field = strtoul(arguments, &text, 10);
    text += *text == ' ' ? 1 : 0;
    std::size_t length = std::min(strlen(text), field);
    reply.put(text, length);
    reply.zero(field - length);
}

// The bytes that each number of such a line takes; 0 when KEYWORD is about something else.
std::size_t number_width(const char *keyword)
{
    static constexpr struct {
        const char *keyword;
        std::size_t width;
    } widths[] = {{"u8", 1}, {"u16", 2}, {"u32", 4}, {"u64", 8}, {"i64", 8}};
    for (const auto &entry : widths) {
        if (strcmp(keyword, entry.keyword) == 0)
            return entry.width;
    }
    return 0;
}

// One line of a reply file; the error number that ends the request, or 0.
int put_line(reply_writer &reply, char *line)
{
    char *keyword = line + strspn(line, " \t");
    if (*keyword == '\0' || *keyword == '#')
        return 0;
    char *arguments = keyword + strcspn(keyword, " \t");
    if (*arguments != '\0')
        *arguments++ = '\0';
    if (std::size_t width = number_width(keyword)) {
        put_numbers(reply, arguments, width);
    } else if (strcmp(keyword, "text") == 0) {
        put_text(reply, arguments);
    } else if (strcmp(keyword, "hex") == 0) {
        put_hex(reply, arguments);
    } else if (strcmp(keyword, "zero") == 0) {
        reply.zero(strtoul(arguments, nullptr, 10));
    } else if (strcmp(keyword, "errno") == 0) {
        return atoi(arguments);
    } else {
        fprintf(stderr, "veksim: unknown word \"%s\" in a request's reply\n", keyword);
        return EINVAL;
    }
    return 0;
}

// A pipe in a reply's place lets the request wait for what is written there; so does a link to "stuck".
int open_reply(const char *path)
{
    for (;; nap()) {
        int fd = libc::openat(AT_FDCWD, path, O_RDONLY | O_CLOEXEC);
        if (fd >= 0)
            return fd;
        const planted fault = planted_at(path);
        if (fault.sticks == moment::never) {
            errno = fault.error != 0 ? fault.error : ENOTTY;
            return -1;
        }
    }
}

// The text at PATH; null, with an error number, when the request has no answer.
char *read_reply(const char *path)
{
    int fd = open_reply(path);
    if (fd < 0)
        return nullptr;
    struct stat info {};
    libc::fstat(fd, &info);
    std::size_t room =
        S_ISFIFO(info.st_mode) ? largest_reply : std::min(largest_reply, static_cast<std::size_t>(info.st_size));
    char *text = S_ISDIR(info.st_mode) ? nullptr : static_cast<char *>(malloc(room + 1));
    std::size_t length = 0;
    for (ssize_t size = 1; text != nullptr && size > 0; length += static_cast<std::size_t>(std::max<ssize_t>(size, 0)))
        size = libc::read(fd, text + length, room - length);
    libc::close(fd);
    if (text != nullptr)
        text[length] = '\0';
    errno = ENOTTY;
    return text;
}

std::size_t reply_limit(unsigned request, const information_block &block)
{
    std::size_t limit = first_static_request.reply_size;
    for (const card_request &known : card_requests) {
        if (known.number == request && known.selector == block.selector)
            limit = known.reply_size;
    }
    return std::min<std::size_t>(limit, block.size);
}

int answer_information(unsigned card, unsigned request, const information_block &block)
{
    char name[64];
    char path[PATH_MAX];
    snprintf(name, sizeof name, "/host/requests/card%u/%08X.%u", card, request, block.selector);
    errno = ENOTTY;
    char *text = tree_path(path, name) ? read_reply(path) : nullptr;
    if (text == nullptr)
        return -1;
    if (block.address == 0) {
        free(text);
        errno = EFAULT;
        return -1;
    }
    auto *buffer = reinterpret_cast<void *>(block.address); // NOLINT(performance-no-int-to-ptr): so the driver takes it
    reply_writer reply(buffer, reply_limit(request, block));
    int error = 0;
    char *rest = text;
    while (error == 0 && rest != nullptr) {
        char *line = strsep(&rest, "\n");
        error = put_line(reply, line);
    }
    free(text);
    errno = error;
    return error == 0 ? 0 : -1;
}

} // namespace

int answer_request(unsigned card, unsigned request, void *argument)
{
    if (argument == nullptr) {
        errno = EFAULT;
        return -1;
    }
    switch (request) {
    case version_request:
        return answer_version(static_cast<version_block *>(argument));
    case first_static_request.number:
    case second_static_request.number:
        return answer_information(card, request, *static_cast<information_block *>(argument));
    default:
        errno = ENOTTY;
        return -1;
    }
}

} // namespace veksim
