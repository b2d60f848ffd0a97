// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace exporter {

enum class client_certificate : std::uint8_t { unwanted, optional, required };

struct tls_settings {
    std::string certificate{}; // PEM, as are the others
    std::string key{};
    std::string client_authority{};
    client_certificate wanted = client_certificate::unwanted;
    std::string priorities{}; // as GnuTLS writes them
};

// Who may read, and by which way: in the form that Prometheus' exporters share.
struct web_config {
    std::optional<tls_settings> tls{};
    std::map<std::string, std::string> users{}; // and their bcrypt hashes
};

// Throws a refusal that names the file, and the line where it can.
web_config read_web_config(const std::string &path);

} // namespace exporter
