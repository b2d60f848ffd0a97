// SPDX-License-Identifier: Apache-2.0
#include "listener.h"

#include "options.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace exporter {
namespace {

constexpr int backlog = 256;

std::string name_of_socket(int socket)
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    char host[NI_MAXHOST], port[NI_MAXSERV];
    if (getsockname(socket, reinterpret_cast<sockaddr *>(&address), &length) != 0)
        return "?";
    if (address.ss_family == AF_UNIX) {
        const auto &local = reinterpret_cast<const sockaddr_un &>(address);
        return fmt::format("unix:{}", std::string(local.sun_path, strnlen(local.sun_path, sizeof local.sun_path)));
    }
    if (getnameinfo(reinterpret_cast<const sockaddr *>(&address), length, host, sizeof host, port, sizeof port,
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return "?";
    return address.ss_family == AF_INET6 ? fmt::format("[{}]:{}", host, port) : fmt::format("{}:{}", host, port);
}

[[noreturn]] void refuse(const std::string &address, const char *why)
{
    throw refusal(fmt::format("cannot listen on {}: {}", address, why));
}

// A socket's file that nobody listens on any more is in the way; one that is in use is not ours to take.
void clear_way(const std::string &path, const sockaddr_un &address)
{
    struct stat facts {};
    if (lstat(path.c_str(), &facts) != 0)
        return;
    if (!S_ISSOCK(facts.st_mode))
        refuse("unix:" + path, "something else stands there");
    const int trial = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int error = connect(trial, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 ? 0 : errno;
    close(trial);
    if (error != ECONNREFUSED)
        refuse("unix:" + path, "it is in use");
    unlink(path.c_str());
}

int number_in(const char *variable)
{
    const char *text = std::getenv(variable);
    return text == nullptr ? 0 : std::atoi(text);
}

} // namespace

listeners::~listeners()
{
    for (const listener &l : all_)
        close(l.socket);
    for (const std::string &path : made_paths_)
        unlink(path.c_str());
}

void listeners::open(const std::string &address)
{
    constexpr std::string_view local = "unix:";
    if (address.starts_with(local))
        return open_unix(address.substr(local.size()));
    const std::size_t colon = address.rfind(':');
    std::string host = address.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    else if (host.find(':') != host.npos)
        refuse(address, "an IPv6 address is written in brackets");
    open_internet(host, address.substr(colon + 1), address);
}

void listeners::open_unix(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path)
        refuse("unix:" + path, "a path of 1 to 107 bytes is needed");
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    clear_way(path, address);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const mode_t mask = umask(0117); // for the owner and the group
    const bool bound = socket >= 0 && bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    const int error = errno;
    umask(mask);
    if (!bound || listen(socket, backlog) != 0) {
        close(socket);
        refuse("unix:" + path, std::strerror(bound ? errno : error));
    }
    all_.push_back({socket, "unix:" + path});
    made_paths_.push_back(path);
}

void listeners::open_internet(const std::string &host, const std::string &port, const std::string &address)
{
    addrinfo hints{}, *found = nullptr;
    hints.ai_flags = AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    if (port.empty() || port.find_first_not_of("0123456789") != port.npos || std::atol(port.c_str()) > 65535)
        refuse(address, "the port is a number from 0 to 65535");
    const int error = getaddrinfo(host.empty() ? nullptr : host.c_str(), port.c_str(), &hints, &found);
    if (error != 0)
        refuse(address, gai_strerror(error));
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> list(found, freeaddrinfo);
    const int on = 1;
    int last_error = 0;
    const std::size_t before = all_.size();
    for (const addrinfo *one = found; one != nullptr; one = one->ai_next) {
        const int socket = ::socket(one->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (socket < 0) {
            last_error = errno;
            continue;
        }
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        if (one->ai_family == AF_INET6)
            setsockopt(socket, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
        if (bind(socket, one->ai_addr, one->ai_addrlen) != 0 || listen(socket, backlog) != 0) {
            last_error = errno;
            close(socket);
            // A host without IPv6 still listens on every interface that it has.
            if (last_error == EADDRNOTAVAIL || last_error == EAFNOSUPPORT)
                continue;
            refuse(address, std::strerror(last_error));
        }
        all_.push_back({socket, name_of_socket(socket)});
    }
    if (all_.size() == before)
        refuse(address, std::strerror(last_error));
}

void listeners::take_inherited()
{
    constexpr int first = 3;
    const int count = number_in("LISTEN_PID") == getpid() ? number_in("LISTEN_FDS") : 0;
    for (const char *variable : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"})
        unsetenv(variable);
    for (int socket = first; socket < first + count; ++socket) {
        int listening = 0;
        socklen_t length = sizeof listening;
        if (getsockopt(socket, SOL_SOCKET, SO_ACCEPTCONN, &listening, &length) != 0 || listening == 0)
            throw refusal(fmt::format("descriptor {} was handed over and is no listening socket", socket));
        fcntl(socket, F_SETFD, FD_CLOEXEC);
        fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) | O_NONBLOCK);
        all_.push_back({socket, name_of_socket(socket)});
    }
}

} // namespace exporter
