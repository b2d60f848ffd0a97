// SPDX-License-Identifier: Apache-2.0
#include "server.h"

#include "metrics.h"
#include "page.h"
#include "readings/number.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <gnutls/gnutls.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace exporter {
namespace {

using clock = collection::clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr unsigned most_connections = 512, least_connections = 8;
constexpr rlim_t kept_files = 64;     // for the readers, and to look at the host
constexpr unsigned idle_seconds = 10; // of a connection, until it is closed
constexpr std::size_t memory_of_connection = 32768;
constexpr auto health_age = seconds(10); // a success older than this is no news: ask the GPUs
constexpr auto health_limit = seconds(60);
constexpr auto way_back = milliseconds(50); // what the answer needs after the readings are in
constexpr auto least_patience = milliseconds(20);

constexpr const char *plain = "text/plain; charset=utf-8";

std::string_view header_of(MHD_Connection *connection, const char *name)
{
    const char *text = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return text == nullptr ? std::string_view() : text;
}

// When a scraper will have given up, as it says.
clock::time_point patience_of(MHD_Connection *connection)
{
    const double given =
        readings::to_number<double>(header_of(connection, "X-Prometheus-Scrape-Timeout-Seconds")).value_or(0);
    if (!(given > 0 && given < 3600))
        return clock::time_point::max();
    const auto all = std::chrono::duration_cast<milliseconds>(std::chrono::duration<double>(given));
    return clock::now() + std::max<milliseconds>(all - way_back, least_patience);
}

MHD_Result refuse(MHD_Connection *connection, unsigned status)
{
    if (status == MHD_HTTP_UNAUTHORIZED) {
        const response page = make_response("not without a certificate or a password that is known here\n", plain,
                                            {{MHD_HTTP_HEADER_WWW_AUTHENTICATE, "Basic realm=\"metrics\""}});
        return MHD_queue_response(connection, status, page.get());
    }
    const response page =
        status == MHD_HTTP_METHOD_NOT_ALLOWED
            ? make_response("only GET and HEAD are answered here\n", plain, {{MHD_HTTP_HEADER_ALLOW, "GET, HEAD"}})
            : make_response("there is /, /metrics and /healthz\n", plain);
    return MHD_queue_response(connection, status, page.get());
}

// Of each of COUNT listeners, so that connections leave descriptors to the rest.
unsigned connections_for(std::size_t count)
{
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) != 0)
        return least_connections;
    const rlim_t left = files.rlim_cur - std::min(files.rlim_cur, kept_files);
    return static_cast<unsigned>(std::clamp<rlim_t>(left / count, least_connections, most_connections));
}

int signal_descriptor()
{
    sigset_t stopping;
    sigemptyset(&stopping);
    sigaddset(&stopping, SIGTERM);
    sigaddset(&stopping, SIGINT);
    sigprocmask(SIG_BLOCK, &stopping, nullptr);
    return signalfd(-1, &stopping, SFD_CLOEXEC | SFD_NONBLOCK);
}

void watch(int events, int descriptor)
{
    epoll_event event{.events = EPOLLIN, .data = {.fd = descriptor}};
    if (epoll_ctl(events, EPOLL_CTL_ADD, descriptor, &event) != 0)
        throw refusal(fmt::format("cannot watch a descriptor: {}", std::strerror(errno)));
}

} // namespace

server::server(const options &wanted, web_config access, const listeners &where, collection &gpus)
    : wanted_(wanted), access_(std::move(access)), gate_(access_.users), gpus_(gpus),
      events_(epoll_create1(EPOLL_CLOEXEC)), signals_(signal_descriptor())
{
    watch(events_, signals_);
    watch(events_, gpus_.descriptor());
    for (const listeners::listener &l : where.all())
        start(l, connections_for(where.all().size()));
}

void server::start(const listeners::listener &where, unsigned connections)
{
    std::vector<MHD_OptionItem> more;
    const auto add = [&](MHD_OPTION option, const std::string &text) {
        more.push_back({option, 0, const_cast<char *>(text.c_str())}); // read only
    };
    if (access_.tls) {
        add(MHD_OPTION_HTTPS_MEM_CERT, access_.tls->certificate);
        add(MHD_OPTION_HTTPS_MEM_KEY, access_.tls->key);
        add(MHD_OPTION_HTTPS_PRIORITIES, access_.tls->priorities);
        if (access_.tls->wanted != client_certificate::unwanted)
            add(MHD_OPTION_HTTPS_MEM_TRUST, access_.tls->client_authority);
    }
    more.push_back({MHD_OPTION_END, 0, nullptr});
    // The daemon closes what it listens on; the listener's own descriptor stays ours.
    const int socket = fcntl(where.socket, F_DUPFD_CLOEXEC, 0);
    const unsigned flags = MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | (access_.tls ? unsigned{MHD_USE_TLS} : 0U);
    MHD_Daemon *daemon =
        MHD_start_daemon(flags, 0, nullptr, nullptr, &server::on_request, this, MHD_OPTION_LISTEN_SOCKET, socket,
                         MHD_OPTION_NOTIFY_COMPLETED, &server::on_completion, this, MHD_OPTION_CONNECTION_LIMIT,
                         connections, MHD_OPTION_CONNECTION_TIMEOUT, idle_seconds, MHD_OPTION_CONNECTION_MEMORY_LIMIT,
                         memory_of_connection, MHD_OPTION_ARRAY, more.data(), MHD_OPTION_END);
    if (daemon == nullptr)
        throw refusal(fmt::format("cannot serve on {}", where.address));
    daemons_.push_back(daemon);
    watch(events_, MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd);
}

server::~server()
{
    for (visit *v : waiting_)
        MHD_resume_connection(v->connection);
    for (visit *v : at_the_gate_)
        MHD_resume_connection(v->connection);
    for (MHD_Daemon *daemon : daemons_)
        MHD_stop_daemon(daemon);
    close(signals_);
    close(events_);
}

void server::run()
{
    gpus_.begin(); // so that the readers have started when the first scrape comes
    for (;;) {
        epoll_event ready[16];
        const int count = epoll_wait(events_, ready, std::size(ready), patience());
        for (int i = 0; i < count; ++i) {
            if (ready[i].data.fd == signals_)
                return;
        }
        gpus_.advance();
        serve_waiting();
        do {
            serve_connections();
        } while (check_passwords());
    }
}

// Twice: one that had no room for another connection listens again only in the run behind that in which one ended, and
// nothing would wake it for that.
void server::serve_connections()
{
    for (MHD_Daemon *daemon : daemons_) {
        MHD_run(daemon);
        MHD_run(daemon);
    }
}

int server::patience() const
{
    constexpr unsigned long long longest = 3'600'000;
    unsigned long long most = longest;
    for (MHD_Daemon *daemon : daemons_) {
        unsigned long long left = longest;
        if (MHD_get_timeout(daemon, &left) == MHD_YES)
            most = std::min(most, left);
    }
    auto due = gpus_.due().value_or(clock::time_point::max());
    for (const visit *v : waiting_)
        due = std::min(due, v->due);
    if (due == clock::time_point::max())
        return static_cast<int>(most);
    const auto left = std::max<clock::duration>(due - clock::now(), clock::duration::zero());
    return static_cast<int>(std::min<unsigned long long>(most, std::chrono::ceil<milliseconds>(left).count()));
}

// ---- a request

MHD_Result server::on_request(void *self, MHD_Connection *connection, const char *path, const char *method,
                              const char *, const char *, std::size_t *body_size, void **context)
{
    try {
        if (*context == nullptr) {
            *context = new visit{.connection = connection};
            return MHD_YES;
        }
        if (*body_size != 0) { // nothing here takes a body
            *body_size = 0;
            return MHD_YES;
        }
        return static_cast<server *>(self)->answer(*static_cast<visit *>(*context), path, method);
    } catch (const std::exception &) {
        return MHD_NO; // memory ran out: this connection ends, the others go on
    }
}

void server::on_completion(void *self, MHD_Connection *, void **context, MHD_RequestTerminationCode)
{
    visit *const v = static_cast<visit *>(*context);
    if (v != nullptr)
        static_cast<server *>(self)->waiting_.remove(v); // it is not at the gate: whoever stands there is suspended
    delete v;
    *context = nullptr;
}

// ---- who may enter

bool server::shows_certificate(MHD_Connection *connection) const
{
    const MHD_ConnectionInfo *info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_GNUTLS_SESSION);
    if (info == nullptr || info->tls_session == nullptr)
        return false;
    auto *const session = static_cast<gnutls_session_t>(info->tls_session);
    unsigned number = 0, status = 0;
    if (gnutls_certificate_get_peers(session, &number) == nullptr || number == 0)
        return access_.tls->wanted == client_certificate::optional;
    return gnutls_certificate_verify_peers2(session, &status) == 0 && status == 0;
}

server::entry server::decide(visit &v)
{
    if (access_.tls && access_.tls->wanted != client_certificate::unwanted && !shows_certificate(v.connection))
        return entry::refused;
    return gate_.is_open() ? entry::granted : decide_by_password(v);
}

server::entry server::decide_by_password(visit &v)
{
    struct release {
        void operator()(char *text) const { MHD_free(text); }
    };
    char *given = nullptr;
    const std::unique_ptr<char, release> user(MHD_basic_auth_get_username_password(v.connection, &given));
    const std::unique_ptr<char, release> password(given);
    if (!user || !password)
        return entry::refused;
    v.who = {user.get(), password.get()};
    if (gate_.knows(v.who))
        return entry::granted;
    at_the_gate_.push_back(&v);
    MHD_suspend_connection(v.connection);
    return entry::undecided;
}

bool server::check_passwords()
{
    bool goes_on = false;
    const auto let = [&](visit &v, bool may_enter) {
        at_the_gate_.pop_front();
        v.may_enter = may_enter ? entry::granted : entry::refused;
        MHD_resume_connection(v.connection);
        goes_on = true;
    };
    if (gate_.is_busy()) {
        pollfd done = {gate_.descriptor(), POLLIN, 0};
        if (poll(&done, 1, 0) != 1)
            return false;
        epoll_ctl(events_, EPOLL_CTL_DEL, gate_.descriptor(), nullptr);
        let(*at_the_gate_.front(), gate_.finish());
    }
    while (!at_the_gate_.empty()) {
        visit &v = *at_the_gate_.front();
        const bool is_known = gate_.knows(v.who); // since it came
        if (!is_known && gate_.begin(v.who)) {
            watch(events_, gate_.descriptor());
            break;
        }
        let(v, is_known);
    }
    return goes_on;
}

// ---- what they get

MHD_Result server::answer(visit &v, std::string_view path, std::string_view method)
{
    if (v.seen)
        return answer_with_readings(v);
    if (v.may_enter == entry::undecided)
        v.may_enter = decide(v);
    if (v.may_enter == entry::undecided)
        return MHD_YES; // suspended
    if (v.may_enter == entry::refused)
        return refuse(v.connection, MHD_HTTP_UNAUTHORIZED);
    if (method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD)
        return refuse(v.connection, MHD_HTTP_METHOD_NOT_ALLOWED);
    if (path == "/metrics")
        v.what = purpose::metrics;
    else if (path == "/")
        v.what = purpose::overview;
    else if (path == "/healthz")
        v.what = purpose::health;
    else
        return refuse(v.connection, MHD_HTTP_NOT_FOUND);
    v.spoken = preferred_dialect(header_of(v.connection, MHD_HTTP_HEADER_ACCEPT));
    if (v.what == purpose::health && clock::now() - gpus_.last_success() < health_age)
        return tell_health(v);
    wait_for_readings(v);
    return v.seen ? answer_with_readings(v) : MHD_YES;
}

void server::wait_for_readings(visit &v)
{
    gpus_.begin();
    if (!gpus_.is_running()) {
        v.seen = gpus_.latest();
        return;
    }
    v.due = patience_of(v.connection);
    waiting_.push_back(&v);
    MHD_suspend_connection(v.connection);
}

// Those that waited for a round that is over, and those that cannot wait any longer.
void server::serve_waiting()
{
    const bool is_over = !gpus_.is_running();
    const auto now = clock::now();
    for (auto next = waiting_.begin(); next != waiting_.end();) {
        visit &v = **next;
        if (!is_over && now < v.due) {
            ++next;
            continue;
        }
        v.seen = is_over ? gpus_.latest() : gpus_.so_far();
        next = waiting_.erase(next);
        MHD_resume_connection(v.connection);
    }
}

MHD_Result server::answer_with_readings(visit &v)
{
    if (v.what == purpose::health)
        return tell_health(v);
    return MHD_queue_response(v.connection, MHD_HTTP_OK, page_for(v));
}

MHD_Result server::tell_health(const visit &v)
{
    const auto age = std::chrono::duration_cast<seconds>(clock::now() - gpus_.last_success());
    const bool is_well = age < health_limit;
    const response page =
        make_response(is_well ? "ok\n" : fmt::format("no GPU has answered for {} seconds\n", age.count()), plain);
    return MHD_queue_response(v.connection, is_well ? MHD_HTTP_OK : MHD_HTTP_SERVICE_UNAVAILABLE, page.get());
}

MHD_Response *server::page_for(const visit &v)
{
    if (pages_.of != v.seen)
        pages_ = {.of = v.seen};
    if (v.what == purpose::overview) {
        if (!pages_.overview)
            pages_.overview =
                make_response(overview_page(*v.seen), "text/html; charset=utf-8",
                              {{"Content-Security-Policy", page_policy}, {"Referrer-Policy", "no-referrer"}});
        return pages_.overview.get();
    }
    response &page = pages_.metrics[static_cast<std::size_t>(v.spoken)];
    if (!page)
        page = make_response(metrics_page(*v.seen, wanted_.processes, v.spoken), content_type_of(v.spoken));
    return page.get();
}

} // namespace exporter
