// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collection.h"
#include "exposition.h"
#include "gate.h"
#include "listener.h"
#include "options.h"
#include "response.h"
#include "web_config.h"

#include <deque>
#include <list>
#include <string_view>
#include <vector>

namespace exporter {

// Answers requests from one loop, beside the readers: a scrape waits, suspended, until the GPUs have answered, and those
// that come meanwhile share what they said.
class server {
public:
    server(const options &wanted, web_config access, const listeners &where, collection &gpus);
    ~server();
    server(const server &) = delete;
    server &operator=(const server &) = delete;

    void run(); // until SIGTERM or SIGINT

private:
    enum class entry : std::uint8_t { undecided, granted, refused };
    enum class purpose : std::uint8_t { metrics, overview, health };

    // A request from its headers to its end.
    struct visit {
        MHD_Connection *connection = nullptr;
        entry may_enter = entry::undecided;
        credentials who{};
        purpose what = purpose::metrics;
        dialect spoken = dialect::text;
        collection::clock::time_point due = collection::clock::time_point::max();
        shared_snapshot seen{}; // once there is something to answer with
    };

    static MHD_Result on_request(void *self, MHD_Connection *connection, const char *path, const char *method,
                                 const char *version, const char *body, std::size_t *body_size, void **context);
    static void on_completion(void *self, MHD_Connection *connection, void **context, MHD_RequestTerminationCode);

    void start(const listeners::listener &where, unsigned connections);
    entry decide(visit &v);
    entry decide_by_password(visit &v);
    bool check_passwords(); // whether somebody goes on
    bool shows_certificate(MHD_Connection *connection) const;
    MHD_Result answer(visit &v, std::string_view path, std::string_view method);
    MHD_Result answer_with_readings(visit &v);
    MHD_Result tell_health(const visit &v);
    MHD_Response *page_for(const visit &v);
    void wait_for_readings(visit &v);
    void serve_waiting();
    void serve_connections();
    int patience() const; // for epoll, in milliseconds

    struct pages { // of one snapshot, each made when first wanted
        shared_snapshot of{};
        response metrics[2]{};
        response overview{};
    };

    const options &wanted_;
    const web_config access_;
    gate gate_;
    collection &gpus_;
    std::vector<MHD_Daemon *> daemons_;
    std::list<visit *> waiting_;      // for readings
    std::deque<visit *> at_the_gate_; // the first is being looked at
    pages pages_;
    int events_;
    int signals_;
};

} // namespace exporter
