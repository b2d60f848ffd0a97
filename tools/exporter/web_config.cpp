// SPDX-License-Identifier: Apache-2.0
#include "web_config.h"

#include "options.h"
#include "readings/value.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <functional>
#include <gnutls/gnutls.h>
#include <iterator>
#include <libfyaml.h>
#include <memory>
#include <sstream>
#include <string_view>

namespace exporter {
namespace {

constexpr int costliest_hash = 15; // seconds for each login beyond this
constexpr std::size_t largest_file = 1 << 20;

std::string content_of(const std::string &path)
{
    errno = 0;
    std::ifstream stream(path, std::ios::binary);
    std::string text;
    char part[4096];
    while (text.size() <= largest_file && (stream.read(part, sizeof part), stream.gcount() > 0))
        text.append(part, static_cast<std::size_t>(stream.gcount()));
    if (text.empty() || text.size() > largest_file)
        throw refusal(fmt::format("{}: {}", readings::printable(path),
                                  !text.empty() ? "it is larger than 1 MiB"
                                  : errno != 0  ? std::strerror(errno)
                                                : "it is empty"));
    return text;
}

class file_reader {
public:
    explicit file_reader(const std::string &path) : path_(path), text_(content_of(path)) {}

    web_config read()
    {
        parse();
        web_config found;
        fy_node *const root = fy_document_root(document_.get());
        if (root == nullptr)
            return found;
        for_each(root, "the file", [&](std::string_view key, fy_node *value) {
            if (key == "tls_server_config")
                found.tls = read_tls(value);
            else if (key == "basic_auth_users")
                read_users(value, found);
            else
                unknown(value, key, "tls_server_config and basic_auth_users");
        });
        return found;
    }

private:
    [[noreturn]] void refuse(fy_node *where, const std::string &why)
    {
        fy_token *token = where == nullptr ? nullptr : fy_node_get_scalar_token(where);
        if (token == nullptr && key_ != nullptr)
            token = fy_node_get_scalar_token(key_);
        const fy_mark *mark = token == nullptr ? nullptr : fy_token_start_mark(token);
        throw refusal(mark == nullptr
                          ? fmt::format("{}: {}", path_, readings::printable(why))
                          : fmt::format("{}: line {}: {}", path_, mark->line + 1, readings::printable(why)));
    }

    [[noreturn]] void unknown(fy_node *where, std::string_view what, const char *known)
    {
        refuse(where, fmt::format("unknown \"{}\"; there is {}", what, known));
    }

    // The parser can loop without end in bytes that are no text.
    void check_text()
    {
        std::istringstream lines(text_);
        std::string line;
        for (unsigned number = 1; std::getline(lines, line); ++number) {
            if (line.ends_with('\r'))
                line.pop_back();
            std::replace(line.begin(), line.end(), '\t', ' ');
            if (readings::printable(line) != line)
                throw refusal(fmt::format("{}: line {}: it holds bytes that are no text", path_, number));
        }
    }

    void parse()
    {
        check_text();
        fy_diag_cfg quiet;
        fy_diag_cfg_default(&quiet);
        quiet.fp = nullptr;
        quiet.output_fn = [](fy_diag *, void *, const char *, std::size_t) {};
        const std::unique_ptr<fy_diag, decltype(&fy_diag_destroy)> said(fy_diag_create(&quiet), fy_diag_destroy);
        fy_diag_set_collect_errors(said.get(), true);
        const fy_parse_cfg settings = {nullptr, fy_parse_cfg_flags(FYPCF_DEFAULT_PARSE), nullptr, said.get()};
        document_.reset(fy_document_build_from_string(&settings, text_.data(), text_.size()));
        if (document_)
            return;
        void *position = nullptr;
        const fy_diag_error *first = fy_diag_errors_iterate(said.get(), &position);
        if (first == nullptr)
            refuse(nullptr, "it is no YAML");
        throw refusal(fmt::format("{}: line {}: {}", path_, first->line, readings::printable(first->msg)));
    }

    std::string text_of(fy_node *node, std::string_view what)
    {
        std::size_t length = 0;
        const char *text = node != nullptr && fy_node_is_scalar(node) && !fy_node_is_alias(node)
                               ? fy_node_get_scalar(node, &length)
                               : nullptr;
        if (text == nullptr || length == 0)
            refuse(node, fmt::format("{} takes a text", what));
        return {text, length};
    }

    void for_each(fy_node *mapping, std::string_view what,
                  const std::function<void(std::string_view key, fy_node *value)> &take)
    {
        if (mapping == nullptr || !fy_node_is_mapping(mapping))
            refuse(mapping, fmt::format("{} takes entries of the form \"key: value\"", what));
        void *position = nullptr;
        while (fy_node_pair *pair = fy_node_mapping_iterate(mapping, &position)) {
            key_ = fy_node_pair_key(pair);
            const std::string key = text_of(key_, "a key");
            take(key, fy_node_pair_value(pair));
        }
    }

    // Relative to the file's own place.
    std::string named_file(fy_node *node, std::string_view key)
    {
        return content_of(std::filesystem::path(path_).parent_path() / text_of(node, key));
    }

    tls_settings read_tls(fy_node *mapping)
    {
        tls_settings found;
        std::string oldest = "TLS12";
        for_each(mapping, "tls_server_config", [&](std::string_view key, fy_node *value) {
            if (key == "cert_file")
                found.certificate = named_file(value, key);
            else if (key == "key_file")
                found.key = named_file(value, key);
            else if (key == "client_ca_file")
                found.client_authority = named_file(value, key);
            else if (key == "client_auth_type")
                found.wanted = client_certificate_from(value);
            else if (key == "min_version")
                oldest = text_of(value, key);
            else
                unknown(value, key, "cert_file, key_file, client_ca_file, client_auth_type and min_version");
        });
        if (oldest != "TLS12" && oldest != "TLS13")
            refuse(nullptr, fmt::format("min_version takes TLS12 or TLS13, not \"{}\"", oldest));
        found.priorities = fmt::format("NORMAL:-VERS-ALL:+VERS-TLS1.3{}", oldest == "TLS12" ? ":+VERS-TLS1.2" : "");
        check(found);
        return found;
    }

    client_certificate client_certificate_from(fy_node *value)
    {
        const std::string text = text_of(value, "client_auth_type");
        if (text == "NoClientCert")
            return client_certificate::unwanted;
        if (text == "VerifyClientCertIfGiven")
            return client_certificate::optional;
        if (text == "RequireAndVerifyClientCert")
            return client_certificate::required;
        unknown(value, text, "NoClientCert, VerifyClientCertIfGiven and RequireAndVerifyClientCert");
    }

    void check(const tls_settings &found)
    {
        if (found.certificate.empty() || found.key.empty())
            refuse(nullptr, "tls_server_config needs cert_file and key_file");
        if ((found.wanted == client_certificate::unwanted) != found.client_authority.empty())
            refuse(nullptr, "client_ca_file and client_auth_type need each other");
        const auto datum = [](const std::string &text) {
            auto *bytes = reinterpret_cast<unsigned char *>(const_cast<char *>(text.data())); // read only
            return gnutls_datum_t{bytes, static_cast<unsigned>(text.size())};
        };
        gnutls_certificate_credentials_t made = nullptr;
        if (gnutls_certificate_allocate_credentials(&made) < 0)
            throw std::bad_alloc();
        const std::unique_ptr<std::remove_pointer_t<gnutls_certificate_credentials_t>,
                              decltype(&gnutls_certificate_free_credentials)>
            credentials(made, gnutls_certificate_free_credentials);
        const gnutls_datum_t certificate = datum(found.certificate), key = datum(found.key),
                             authority = datum(found.client_authority);
        const int fits = gnutls_certificate_set_x509_key_mem(made, &certificate, &key, GNUTLS_X509_FMT_PEM);
        if (fits == GNUTLS_E_CERTIFICATE_KEY_MISMATCH)
            refuse(nullptr, "the key in key_file is not that of the certificate in cert_file");
        if (fits < 0)
            refuse(nullptr, fmt::format("cert_file and key_file: {}", gnutls_strerror(fits)));
        if (!found.client_authority.empty() &&
            gnutls_certificate_set_x509_trust_mem(made, &authority, GNUTLS_X509_FMT_PEM) <= 0)
            refuse(nullptr, "client_ca_file holds no certificate");
    }

    void read_users(fy_node *mapping, web_config &found)
    {
        for_each(mapping, "basic_auth_users", [&](std::string_view user, fy_node *value) {
            const std::string hash = text_of(value, "a user");
            const bool is_bcrypt = hash.size() == 60 && hash[0] == '$' && hash[1] == '2' &&
                                   std::strchr("aby", hash[2]) != nullptr && hash[3] == '$' && hash[6] == '$';
            const int cost = is_bcrypt ? std::atoi(hash.substr(4, 2).c_str()) : 0;
            if (cost < 4 || cost > costliest_hash)
                refuse(value, fmt::format("user \"{}\" needs a bcrypt hash of cost 4 to {}", user, costliest_hash));
            found.users.emplace(user, hash);
        });
        if (found.users.empty())
            refuse(mapping, "basic_auth_users names nobody");
    }

    std::string path_;
    std::string text_;
    fy_node *key_ = nullptr; // the last one looked at, which has a line where its value may have none
    std::unique_ptr<fy_document, decltype(&fy_document_destroy)> document_{nullptr, fy_document_destroy};
};

} // namespace

web_config read_web_config(const std::string &path)
{
    return file_reader(path).read();
}

} // namespace exporter
