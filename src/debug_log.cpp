// SPDX-License-Identifier: Apache-2.0
#include "debug_log.h"

#include "raii.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <pthread.h>
#include <string_view>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>

namespace vekml {
namespace {

constexpr char log_path[] = "/tmp/smi.log";
constexpr std::uint64_t size_limit = 0x100000;

// The folder is open to everyone and the writer may be root: no link is followed, no FIFO waited for.
constexpr int safe_flags = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
constexpr int append_flags = O_WRONLY | O_APPEND | safe_flags;

/** Open without O_CREAT first: where the kernel protects files in sticky folders, a creating open of another user's
 *  log fails, even for root. */
unique_fd open_log()
{
    unique_fd log(open(log_path, append_flags));
    if (!log && errno == ENOENT) {
        log.reset(open(log_path, append_flags | O_CREAT | O_EXCL, 0666));
        if (!log && errno == EEXIST) // another process was quicker
            log.reset(open(log_path, append_flags));
    }
    return log;
}

/** A file with another name is somebody else's as well: what they keep there is not ours to empty. */
bool has_one_name(int log)
{
    struct statx state;
    return statx(log, "", AT_EMPTY_PATH, STATX_NLINK, &state) == 0 && state.stx_nlink <= 1;
}

bool may_be_read()
{
    return static_cast<bool>(unique_fd(open(log_path, O_RDONLY | safe_flags)));
}

/** The size of a log that is fit to be written to, emptied first when it has grown past the limit. One that may not be
 *  read, whose size is then not for us to know, is appended to all the same; one that can only grow is not fit. */
std::optional<std::uint64_t> ready_size(int log)
{
    struct statx state;
    if (statx(log, "", AT_EMPTY_PATH, STATX_TYPE | STATX_SIZE, &state) != 0 || !S_ISREG(state.stx_mode))
        return {};
    if (state.stx_size <= size_limit || !has_one_name(log) || !may_be_read())
        return state.stx_size;
    return ftruncate(log, 0) == 0 ? std::optional<std::uint64_t>(0) : std::nullopt;
}

/** What is found out anew each second, not for each message. */
struct second_state {
    std::time_t second = -1;
    std::size_t length = 0;
    char text[30] = {};
    std::uint64_t file_limit = 0; /**< writing past it would raise a signal that ends the program */
};

// Without this model, and with anything to initialise at run time, a program that loaded the library with dlopen would
// need memory for a new thread's first message.
[[gnu::tls_model("initial-exec")]] constinit thread_local second_state this_second;

const second_state &state_of(std::time_t now)
{
    second_state &state = this_second;
    if (state.second != now) {
        std::tm broken_down;
        const bool known = localtime_r(&now, &broken_down) != nullptr;
        state.length = known ? std::strftime(state.text, sizeof state.text, "%Y-%m-%d %H:%M:%S", &broken_down) : 0;
        rlimit limit;
        state.file_limit = getrlimit(RLIMIT_FSIZE, &limit) == 0 ? limit.rlim_cur : RLIM_INFINITY;
        state.second = now;
    }
    return state;
}

// Asking the kernel costs a tenth of a message, so the answer is kept until fork() makes another process of this one;
// a child made behind the C library's back is logged under its parent's number.
std::atomic<pid_t> known_process = 0;
const bool forgets_on_fork = pthread_atfork(nullptr, nullptr, [] { known_process = 0; }) == 0;

long process_id()
{
    pid_t process = known_process.load(std::memory_order_relaxed);
    if (process == 0) {
        process = getpid();
        if (forgets_on_fork)
            known_process.store(process, std::memory_order_relaxed);
    }
    return process;
}

/** Appends to a buffer that is large enough for every prefix; cuts what does not fit. */
class prefix_writer {
public:
    prefix_writer(char *begin, char *end) : next_(begin), end_(end) {}

    prefix_writer &operator<<(std::string_view text)
    {
        const auto length = std::min(text.size(), static_cast<std::size_t>(end_ - next_));
        // Not memcpy: the compiler would copy these few bytes with an instruction that is slow to start.
        next_ = static_cast<char *>(mempcpy(next_, text.data(), length));
        return *this;
    }
    prefix_writer &operator<<(long number)
    {
        const auto [end, error] = std::to_chars(next_, end_, number);
        if (error == std::errc())
            next_ = end;
        return *this;
    }
    prefix_writer &six_digits(long number)
    {
        char digits[6];
        for (int i = 5; i >= 0; --i, number /= 10)
            digits[i] = static_cast<char>('0' + number % 10);
        return *this << std::string_view(digits, sizeof digits);
    }
    char *end() const { return next_; }

private:
    char *next_;
    char *end_;
};

/** "[DBG][<time>.<microseconds>,pid:<pid>][vekml]<file>(<line>)-<<function>>: " */
char *write_prefix(char *begin, char *end, const second_state &second, long usec, const trace_site &site)
{
    prefix_writer out(begin, end);
    out << "[DBG][" << std::string_view(second.text, second.length) << ".";
    out.six_digits(usec) << ",pid:" << process_id() << "][vekml]";
    out << site.file << "(" << static_cast<long>(site.line) << ")-<" << site.function << ">: ";
    return out.end();
}

/** The message behind its prefix, in one write however long it is; nothing when it is longer than `room`. */
[[gnu::format(printf, 6, 0)]] void write_message(int log, std::uint64_t room, char *line, std::size_t prefix,
                                                 std::size_t capacity, const char *format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(line + prefix, capacity - prefix, format, arguments);
    const auto needed = prefix + static_cast<std::size_t>(length);
    const bool fits = length >= 0 && needed <= room;
    if (fits && needed < capacity) {
        (void)!write(log, line, needed);
    } else if (fits) {
        if (const unique_text whole{static_cast<char *>(malloc(needed + 1))}) {
            std::memcpy(whole.get(), line, prefix);
            vsnprintf(whole.get() + prefix, needed + 1 - prefix, format, again);
            (void)!write(log, whole.get(), needed);
        }
    }
    va_end(again);
}

/** Append to a log of the given size, if that is then within the limit for files. */
[[gnu::format(printf, 4, 0)]] void write_line(int log, std::uint64_t size, const trace_site &site, const char *format,
                                              va_list arguments)
{
    timeval now;
    gettimeofday(&now, nullptr);
    const second_state &second = state_of(now.tv_sec);
    char text[1024];
    const char *message = write_prefix(text, text + sizeof text / 2, second, now.tv_usec, site);
    const std::uint64_t room = second.file_limit - std::min(size, second.file_limit);
    write_message(log, room, text, static_cast<std::size_t>(message - text), sizeof text, format, arguments);
}

} // namespace

void vekml_debug_log(const char *file, int line, const char *function, const char *format, ...)
{
    const int callers_errno = errno;
    if (const unique_fd log = open_log()) {
        if (const auto size = ready_size(log.get())) {
            va_list arguments;
            va_start(arguments, format);
            write_line(log.get(), *size, {file, line, function}, format, arguments);
            va_end(arguments);
        }
    }
    errno = callers_errno;
}

} // namespace vekml
