// SPDX-License-Identifier: Apache-2.0
#include "debug_log.h"
#include "sim_host.h"
#include "veksim.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr char log_file[] = "/tmp/smi.log";
constexpr std::size_t limit = 1048576;

class debug_log_test : public sim_host {
protected:
    void say(const char *word) { TRACE("%s", word); }

    std::size_t log_size() const { return host.log().size(); }
};

TEST_F(debug_log_test, the_first_message_creates_the_file_and_carries_the_prefix)
{
    say("hello");
    const std::string log = host.log();
    int year, month, day, hour, minute, second, microsecond, process, line, end = 0;
    std::sscanf(log.c_str(),
                "[DBG][%4d-%2d-%2d %2d:%2d:%2d.%6d,pid:%d][vekml]tests/debug_log_test.cpp(%d)-<say>: hello%n", &year,
                &month, &day, &hour, &minute, &second, &microsecond, &process, &line, &end);
    EXPECT_EQ(log.substr(static_cast<std::size_t>(end)), "\n") << log;
    EXPECT_EQ(process, getpid());
}

TEST_F(debug_log_test, a_message_keeps_its_own_line_ends_and_errno_survives)
{
    errno = ENOTTY;
    TRACE_OPEN("open end");
    TRACE_AS("step", "\nleading");
    EXPECT_EQ(errno, ENOTTY);
    const std::string log = host.log();
    EXPECT_NE(log.find(">: open end[DBG]["), std::string::npos) << log;
    EXPECT_NE(log.find("-<step>: \nleading\n"), std::string::npos) << log;
}

TEST_F(debug_log_test, a_message_of_any_length_is_written_whole)
{
    for (const std::size_t length : {900u, 1000u, 1024u, 300000u}) {
        host.remove(log_file);
        const std::string message(length, 'x');
        say(message.c_str());
        ASSERT_EQ(log_lines().size(), 1u);
        EXPECT_EQ(log_lines()[0].message, message);
    }
}

TEST_F(debug_log_test, only_a_file_past_the_limit_is_emptied)
{
    host.write(log_file, std::string(limit, 'x'));
    say("appended");
    EXPECT_GT(log_size(), limit);

    host.write(log_file, std::string(limit + 1, 'x'));
    say("emptied");
    ASSERT_EQ(log_lines().size(), 1u);
    EXPECT_EQ(log_lines()[0].message, "emptied");
}

TEST_F(debug_log_test, a_log_that_may_not_be_read_is_appended_to_whatever_its_size)
{
    if (syscall(SYS_geteuid) != 0) // the host plays root to everyone
        GTEST_SKIP() << "only root becomes another user";
    host.write(log_file, std::string(limit + 1, 'x'));
    host.set_mode(log_file, 0222);
    host.set_mode("/tmp", 0755);
    chmod(host.root().c_str(), 0755);
    in_child([&] {
        if (setresuid(65534, 65534, 65534) == 0)
            say("appended");
        return 0;
    });
    EXPECT_GT(log_size(), limit + 1);
}

TEST_F(debug_log_test, a_log_with_another_name_is_never_emptied)
{
    host.write(log_file, std::string(limit + 1, 'x'));
    std::filesystem::create_hard_link(host.path(log_file), host.path("/tmp/kept"));
    say("appended");
    EXPECT_GT(log_size(), limit + 1);
    host.remove("/tmp/kept");
    say("emptied");
    EXPECT_EQ(log_lines().size(), 1u);
}

TEST_F(debug_log_test, a_limit_on_files_drops_what_would_not_fit)
{
    for (const std::size_t size : {800u, 1000u, 1100u}) {
        host.write(log_file, std::string(size, 'x'));
        const int status = in_child([&] {
            const rlimit limited{1000, RLIM_INFINITY};
            veksim_advance(1000000); // it is looked at once a second
            if (setrlimit(RLIMIT_FSIZE, &limited) != 0)
                return 1;
            say(std::string(size == 800 ? 200 : 1, '#').c_str());
            say("z");
            return 0;
        });
        EXPECT_EQ(status, 0);
        EXPECT_EQ(host.log().find('#'), std::string::npos) << size;
        EXPECT_EQ(log_size() > size, size == 800) << "a short line still fits";
    }
}

TEST_F(debug_log_test, a_clock_that_is_set_back_shows_at_once)
{
    say("before");
    veksim_advance(-7200 * std::int64_t{1000000});
    say("after");
    const std::string log = host.log();
    const auto time_at = [&](std::size_t line) { return log.substr(line + 6, 19); };
    EXPECT_LT(time_at(log.find('\n') + 1), time_at(0)) << log;
}

TEST_F(debug_log_test, a_full_log_that_may_not_be_emptied_grows_no_further)
{
    host.write(log_file, std::string(limit + 1, 'x'));
    const int log = open(host.path(log_file).c_str(), O_RDONLY | O_CLOEXEC);
    long flags = 0;
    const bool known = ioctl(log, FS_IOC_GETFLAGS, &flags) == 0;
    const long append_only = flags | FS_APPEND_FL;
    const bool refused = !known || ioctl(log, FS_IOC_SETFLAGS, &append_only) != 0;
    say("dropped");
    if (!refused)
        ioctl(log, FS_IOC_SETFLAGS, &flags);
    close(log);
    if (refused)
        GTEST_SKIP() << "files cannot be made append-only here";
    EXPECT_EQ(log_size(), limit + 1);
}

TEST_F(debug_log_test, another_user_s_log_is_appended_to)
{
    host.write(log_file, "");
    ASSERT_EQ(chown(host.path(log_file).c_str(), 65534, 65534), 0);
    chmod(host.path("/tmp").c_str(), 01777);
    say("appended");
    EXPECT_EQ(log_lines().size(), 1u);
}

TEST_F(debug_log_test, a_child_logs_its_own_process_id)
{
    say("parent");
    in_child([&] { return say("child"), 0; });
    const std::string log = host.log();
    const std::string own = "pid:" + std::to_string(getpid()) + "]";
    EXPECT_NE(log.find(own), std::string::npos);
    EXPECT_EQ(log.find(own, log.find(own) + 1), std::string::npos) << log;
}

TEST_F(debug_log_test, nothing_but_a_regular_file_is_written_to)
{
    const std::string victim = host.path("/tmp/victim").string();
    host.write("/tmp/victim", std::string(limit + 1, 'v'));
    const auto log_path = host.path(log_file);
    const auto dropped = [&](const char *what) {
        EXPECT_EQ(vekml_init(), VEKML_SUCCESS) << what;
        EXPECT_EQ(std::filesystem::file_size(victim), limit + 1) << what;
        std::filesystem::remove(log_path);
    };

    std::filesystem::create_symlink(victim, log_path);
    dropped("a link");
    std::filesystem::create_symlink(host.path("/tmp/absent"), log_path);
    dropped("a dangling link");
    EXPECT_FALSE(host.exists("/tmp/absent"));
    ASSERT_EQ(mkfifo(log_path.c_str(), 0666), 0);
    dropped("a FIFO without a reader");
    std::filesystem::create_directory(log_path);
    dropped("a directory");
    host.remove("/tmp");
    EXPECT_EQ(vekml_init(), VEKML_SUCCESS) << "no folder";
}

} // namespace
