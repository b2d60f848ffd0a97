// SPDX-License-Identifier: Apache-2.0
#include "programs.h"

#include "target.h"

#include "exporter/collection.h"
#include "exporter/listener.h"
#include "exporter/server.h"
#include "exporter/web_config.h"
#include "readings/value.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace exporter;
namespace fs = std::filesystem;

fs::path place_of(const char *name)
{
    return fs::temp_directory_path() / (std::to_string(getpid()) + name);
}

// An exporter of a host without GPUs, in a thread of its own for as long as the program runs.
class served {
public:
    explicit served(web_config access)
    {
        std::promise<void> ready;
        std::thread([&, access = std::move(access)]() mutable {
            const options wanted;
            listeners where;
            where.open("unix:" + path_);
            collection gpus(wanted);
            server running(wanted, std::move(access), where, gpus);
            ready.set_value();
            running.run();
        }).detach();
        ready.get_future().wait();
    }

    std::string answer_to(const std::string &bytes) const
    {
        const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        path_.copy(address.sun_path, sizeof address.sun_path - 1);
        must(connect(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0);
        send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL); // whole: it fits the socket's buffer
        // The end of a request that comes together with its last bytes is noticed only when the connection is idle.
        for (int unread = 1; unread > 0 && ioctl(socket, SIOCOUTQ, &unread) == 0;)
            usleep(20);
        shutdown(socket, SHUT_WR);
        std::string answer;
        char part[4096];
        for (ssize_t count = 0; (count = recv(socket, part, sizeof part, 0)) > 0;)
            answer.append(part, static_cast<std::size_t>(count));
        close(socket);
        return answer;
    }

private:
    const std::string path_ = place_of(".socket");
};

// What a stranger is told names no version of anything.
void take_answer(const std::string &answer)
{
    must(answer.empty() || answer.starts_with("HTTP/1."));
    must(answer.find("microhttpd") == std::string::npos);
}

} // namespace

void run_request(const std::string &bytes)
{
    static const served everybody{web_config{}};
    take_answer(everybody.answer_to(bytes));
    const std::string health = everybody.answer_to("GET /healthz HTTP/1.0\r\n\r\n");
    must(health.starts_with("HTTP/1.1 200") && health.ends_with("\nok\n"));
}

void run_login(const std::string &bytes)
{
    static const served one_user{
        web_config{.tls = {}, .users = {{"ada", "$2b$04$abcdefghijklmnopqrstuu5Lo0g67CiD3M4RpN1BmBb4Crp5w7dbK"}}}};
    const std::string answer = one_user.answer_to(bytes);
    take_answer(answer);
    must(answer.find("HTTP/1.1 200") == std::string::npos && answer.find("vekgpu") == std::string::npos);
}

void run_web_config(const std::string &text)
{
    static const fs::path file = place_of(".yml");
    std::ofstream(file, std::ios::binary) << text;
    try {
        const web_config found = read_web_config(file);
        must(!found.tls || (!found.tls->certificate.empty() && !found.tls->key.empty()));
        for (const auto &[user, hash] : found.users)
            must(hash.size() == 60);
    } catch (const refusal &fault) {
        const std::string line = fault.what();
        must(line.size() < 65536 && readings::printable(line) == line);
    }
}
