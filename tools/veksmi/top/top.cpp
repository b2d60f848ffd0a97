// SPDX-License-Identifier: Apache-2.0
#include "top.h"

#include "screen.h"
#include "view.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <langinfo.h>
#include <poll.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <unistd.h>

namespace top {
namespace {

using clock = source::clock;
using std::chrono::milliseconds;

constexpr milliseconds shortest_deadline{1000}; // of a round, but the first

// ---- signals, as bytes of a pipe that poll can wait for

int signal_pipe[2] = {-1, -1};

void tell(int signal)
{
    const int error = errno;
    const auto number = static_cast<unsigned char>(signal);
    [[maybe_unused]] const auto written = write(signal_pipe[1], &number, 1);
    errno = error;
}

class signals {
public:
    signals()
    {
        if (pipe2(signal_pipe, O_CLOEXEC | O_NONBLOCK) != 0)
            throw std::runtime_error("no pipe for signals");
        struct sigaction action {};
        action.sa_handler = tell;
        action.sa_flags = SA_RESTART;
        for (std::size_t i = 0; i < watched.size(); ++i)
            sigaction(watched[i], &action, &before_[i]);
    }
    ~signals()
    {
        for (std::size_t i = 0; i < watched.size(); ++i)
            sigaction(watched[i], &before_[i], nullptr);
        close(signal_pipe[0]);
        close(signal_pipe[1]);
    }
    signals(const signals &) = delete;
    signals &operator=(const signals &) = delete;

    static int next() // 0 when none came
    {
        unsigned char number = 0;
        return read(signal_pipe[0], &number, 1) == 1 ? number : 0;
    }

private:
    static constexpr std::array watched = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH};
    std::array<struct sigaction, watched.size()> before_{};
};

// ---- what the surroundings say

bool wants_colour()
{
    const char *no_colour = std::getenv("NO_COLOR");
    return no_colour == nullptr || *no_colour == '\0';
}

glyphs fitting_glyphs(const options &wanted)
{
    const char *terminal = std::getenv("TERM");
    return wanted.ascii ? glyphs::ascii : fitting(nl_langinfo(CODESET), terminal == nullptr ? "" : terminal);
}

std::string settings_file()
{
    return settings_path(std::getenv("XDG_STATE_HOME"), std::getenv("HOME"));
}

int size_from(const char *variable, int otherwise)
{
    const char *text = std::getenv(variable);
    const int number = text == nullptr ? 0 : std::atoi(text);
    return number > 0 && number <= 1000 ? number : otherwise;
}

// ---- the loop

class session {
public:
    session(source &from, const options &wanted)
        : from_(from), wanted_(wanted), path_(settings_file()), kept_(load_settings(path_, trouble_)), model_(kept_),
          fit_(fitting_glyphs(wanted))
    {
        if (wanted.interval)
            model_.wanted.interval = *wanted.interval;
        began_with_ = model_.wanted;
        model_.word = trouble_;
    }

    ending once()
    {
        if (!trouble_.empty())
            std::fprintf(stderr, "veksmi: %s\n", trouble_.c_str());
        begin();
        while (!from_.is_over()) {
            pollfd waited{from_.descriptor(), POLLIN, 0};
            poll(&waited, 1, left_until(from_.due().value_or(from_.now() + wanted_.deadline)));
            from_.advance();
        }
        take();
        winsize size{};
        ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
        const int width = size_from("COLUMNS", size.ws_col > 0 ? size.ws_col : 80);
        const int height = size_from("LINES", size.ws_row > 0 ? size.ws_row : 24);
        const std::string text = draw(model_, width, height, drawn_with(), false).cells.text();
        if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size())
            throw std::runtime_error("standard output cannot be written");
        if (model_.shown().gpus.empty())
            return ending::no_gpu;
        return model_.is_ill() ? ending::ill : ending::done;
    }

    ending watch()
    {
        {
            screen terminal(wants_colour());
            const signals caught; // after the terminal's own handlers
            loop(terminal);
        }
        save();
        return ending::done;
    }

private:
    void begin()
    {
        const bool is_first = !model_.shown().any;
        began_ = since_start();
        from_.begin(model::request(), is_first ? wanted_.deadline : later_deadline());
        next_round_ = from_.now() + model_.wanted.interval;
        asked_ = true;
    }

    milliseconds later_deadline() const
    {
        return std::min(std::max(model_.wanted.interval, shortest_deadline), wanted_.deadline);
    }

    void take()
    {
        asked_ = false;
        model_.take(from_.result(), began_, from_.wall());
    }

    moment since_start() const { return std::chrono::duration_cast<moment>(from_.now() - start_); }

    int left_until(clock::time_point when) const
    {
        const auto left = std::chrono::ceil<milliseconds>(when - from_.now());
        return static_cast<int>(std::clamp<long>(left.count(), 0, 1000));
    }

    // What was chosen once, unless this terminal does not know so much.
    glyphs drawn_with() const
    {
        const glyphs chosen = model_.wanted.drawn_with.value_or(fit_);
        return fit_ == glyphs::ascii ? fit_ : chosen;
    }

    void show(screen &terminal)
    {
        picture drawn = draw(model_, terminal.width(), terminal.height(), drawn_with());
        terminal.show(drawn.cells);
        layout_ = std::move(drawn.where);
    }

    void loop(screen &terminal)
    {
        begin();
        show(terminal);
        for (;;) {
            auto wake = asked_ ? from_.due() : std::optional(next_round_);
            if (const auto due = from_.due(); due && wake)
                wake = std::min(*wake, *due);
            pollfd watched[] = {
                {STDIN_FILENO, POLLIN, 0}, {signal_pipe[0], POLLIN, 0}, {from_.descriptor(), POLLIN, 0}};
            poll(watched, std::size(watched), wake ? left_until(*wake) : 1000);
            bool changed = false;
            if (!handle_signals(terminal, changed) || !handle_keys(terminal, changed))
                return;
            if ((watched[0].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0)
                return; // the terminal is gone
            if (from_.advance() && asked_) {
                take();
                changed = true;
            }
            if (!asked_ && from_.now() >= next_round_)
                begin();
            if (changed)
                show(terminal);
        }
    }

    // False when one ends the program.
    static bool handle_signals(screen &terminal, bool &changed)
    {
        while (const int signal = signals::next()) {
            changed = true;
            if (signal == SIGWINCH) {
                terminal.resize();
            } else if (signal == SIGTSTP) {
                terminal.leave();
                kill(getpid(), SIGSTOP);
                terminal.resize(); // here again
                terminal.repaint();
            } else {
                return false;
            }
        }
        return true;
    }

    bool handle_keys(screen &terminal, bool &changed)
    {
        while (const auto pressed = terminal.next_press()) {
            const milliseconds before = model_.wanted.interval;
            if (pressed->what == key::character && pressed->character == ctrl_l)
                terminal.repaint();
            if (apply(*pressed, layout_, fit_, model_) == outcome::quit)
                return false;
            if (model_.wanted.interval != before)
                next_round_ = std::min(next_round_, from_.now() + model_.wanted.interval);
            changed = true;
        }
        return true;
    }

    // What was given on the command line is not kept, unless it was changed since.
    void save()
    {
        settings fresh = model_.wanted;
        if (fresh.interval == began_with_.interval)
            fresh.interval = kept_.interval;
        if (fresh != kept_)
            save_settings(path_, fresh);
    }

    static constexpr char32_t ctrl_l = 0x0c;

    source &from_;
    const options wanted_;
    std::string trouble_{};
    std::string path_;
    settings kept_, began_with_{};
    model model_;
    glyphs fit_;
    layout layout_{};
    const clock::time_point start_ = from_.now();
    clock::time_point next_round_{};
    moment began_{};
    bool asked_ = false;
};

} // namespace

ending run(source &from, const options &wanted)
{
    std::setlocale(LC_CTYPE, "");
    if (!wanted.once && (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0)) {
        std::fputs("veksmi: top takes a terminal; top --once prints one screen, monitor a line for each round\n",
                   stderr);
        return ending::no_terminal;
    }
    session watched(from, wanted);
    if (wanted.once)
        return watched.once();
    try {
        return watched.watch();
    } catch (const std::runtime_error &error) {
        std::fprintf(stderr, "veksmi: %s; top --once prints one screen\n", error.what());
        return ending::no_terminal;
    }
}

} // namespace top
