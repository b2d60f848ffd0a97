// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collection.h"
#include "exposition.h"
#include "listener.h"
#include "options.h"
#include "response.h"

#include <list>
#include <string_view>
#include <vector>

namespace exporter {

// Answers requests from one loop, beside the readers: a scrape waits, suspended, until the GPUs have answered, and those
// that come meanwhile share what they said.
class server {
public:
    server(const options &wanted, const listeners &where, collection &gpus);
    ~server();
    server(const server &) = delete;
    server &operator=(const server &) = delete;

    void run(); // until SIGTERM or SIGINT

private:
    enum class purpose : std::uint8_t { metrics, overview, health };

    // A request from its headers to its end.
    struct visit {
        MHD_Connection *connection = nullptr;
        purpose what = purpose::metrics;
        dialect spoken = dialect::text;
        collection::clock::time_point due = collection::clock::time_point::max();
        shared_snapshot seen{}; // once there is something to answer with
    };

    static MHD_Result on_request(void *self, MHD_Connection *connection, const char *path, const char *method,
                                 const char *version, const char *body, std::size_t *body_size, void **context);
    static void on_completion(void *self, MHD_Connection *connection, void **context, MHD_RequestTerminationCode);

    MHD_Result answer(visit &v, std::string_view path, std::string_view method);
    MHD_Result answer_with_readings(visit &v);
    MHD_Result tell_health(const visit &v);
    MHD_Response *page_for(const visit &v);
    void wait_for_readings(visit &v);
    void serve_waiting();
    int patience() const; // for epoll, in milliseconds

    struct pages { // of one snapshot, each made when first wanted
        shared_snapshot of{};
        response metrics[2]{};
        response overview{};
    };

    const options &wanted_;
    collection &gpus_;
    std::vector<MHD_Daemon *> daemons_;
    std::list<visit *> waiting_;
    pages pages_;
    int events_;
    int signals_;
};

} // namespace exporter
