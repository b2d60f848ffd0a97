// SPDX-License-Identifier: Apache-2.0
// What reaches the programs from elsewhere: command lines, what the driver says, what their readers send, a host's
// units.
#include "programs.h"
#include "target.h"

#include "readings/message.h"
#include "readings/read_field.h"
#include "readings/units.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

using namespace readings;
namespace fs = std::filesystem;

// Nothing that a terminal obeys may be left, so what is printable stays as it is.
void take_text(const std::string &text)
{
    const std::string clean = printable(text);
    must(clean.size() <= text.size() && printable(clean) == clean);
    for (const unsigned char byte : clean)
        must(byte >= 0x20 && byte != 0x7f);
}

void take_units(const std::string &text)
{
    units table;
    const std::string fault = table.override_with(text);
    must(fault.size() < 400 && printable(fault) == fault);
    for (const quantity q : {quantity::temperature, quantity::power, quantity::memory, quantity::clock}) {
        must(fault.empty() || table.scale(q) == 1);
        must(is_present(table.scaled(q, std::int64_t{-40})) && is_present(table.scaled(q, UINT64_MAX)));
    }
}

// The input in two packets, cut at its first byte.
void take_message(const std::string &input)
{
    if (input.empty())
        return;
    const std::size_t cut = std::min<std::size_t>(static_cast<unsigned char>(input[0]), input.size() - 1);
    const std::string first = "\1" + input.substr(1, cut), second = '\0' + input.substr(1 + cut);
    assembly whole;
    auto outcome = assembly::outcome::more;
    if (cut > 0)
        outcome = whole.add(reinterpret_cast<const std::uint8_t *>(first.data()), first.size());
    if (outcome == assembly::outcome::more)
        outcome = whole.add(reinterpret_cast<const std::uint8_t *>(second.data()), second.size());
    if (outcome != assembly::outcome::whole)
        return;
    number_of(whole.document());
    if (const auto asked = request_from(whole.document()))
        must(request_from(request_document(*asked, 1))->fields == asked->fields);
    answer said;
    if (!take_answer(whole.document(), said))
        return;
    request everything;
    for (const field &f : all_fields) {
        take_text(human(said[f], f.in));
        everything.fields.push_back(&f);
    }
    answer again;
    must(take_answer(answer_document(said, everything, 1), again));
}

std::string sample_message()
{
    answer said;
    const value values[] = {
        std::int64_t{-5}, 0.5, true, "text\x1b", std::vector<std::uint64_t>{1, 2}, missing{reason::denied, 13, "/sys"}};
    request everything;
    for (const field &f : all_fields) {
        said.values[index_of(f)] = values[index_of(f) % std::size(values)];
        everything.fields.push_back(&f);
    }
    said.processes = json::array({{{"pid", 5}, {"name", "a"}}});
    said.more["set"] = {{"result", 4}};
    const packet whole = packets_of(answer_document(said, everything, 7)).front();
    return {whole.begin(), whole.end()};
}

std::string sample_request()
{
    const packet whole =
        packets_of(request_document({.fields = pick<"power", "uuid">(), .processes = true}, 7)).front();
    return {whole.begin(), whole.end()};
}

// For each thing that a report may hold, a text of it.
inputs texts_to_mask()
{
    const std::string texts[] = {
        "text 9b7f3a52",
        "0x9b7f3a52\n",
        "0 4 4 8 14000000000 0 0 2608806482 18975 0 1 1\n",
        std::string(120, '\x52'),
        std::string(336, '\1'),
        std::string(184, '\2') + std::string(184, '\0'),
        std::string(256, '\0') + std::string("\3\0\1\x20SERIALNO", 12) + std::string(512, '\0'),
        "KM info: 1.10 build by a@b\n0: GPU_LOCAL, Free Size: 10, Total Size: 20\n",
        "[DBG][2026-01-01 00:00:00.000001,pid:1][vekml]src/vek_smi.cpp(1)-<f>: enter 9b7f3a52\n",
        "Name:\tfirst\nState:\tS\nPid:\t5\n",
        "first\n",
        "ii  vekgpu-driver 1.4.0-2 arm64 driver\nii  zlib1g 1 all x\n",
        "seen"};
    inputs all;
    for (const std::string &text : texts)
        all.push_back(static_cast<char>(all.size()) + text);
    return all;
}

// A GPU that says the same of everything, however it was found.
void add_gpu()
{
    host->add_gpu();
    vekml_init();
    link_to_first(single_values());
}

void read_fields(const std::string &text)
{
    static const fs::path all = host->path(single_values()[0]);
    std::ofstream(all, std::ios::binary | std::ios::trunc) << text;
    vekml_device_t handle = nullptr;
    vekml_device_get_handle_by_index(0, &handle);
    gpu one(handle, false);
    for (const field &f : all_fields) {
        if (std::string(f.key).starts_with("video_")) // a rate takes its time
            continue;
        const value found = read_field(f, one);
        take_text(human(found, f.in));
    }
}

} // namespace

std::vector<target> all_targets()
{
    const inputs lines = {"list",
                          "-i\n0\ninfo",
                          "query\n--fields\ntemperature,power\n--format\njson",
                          "monitor\n-n\n0.5\n-c\n3",
                          "--gpu\n0000:03:00.0\nfan\nset\nfan\n60",
                          "temp\nset\nmax\n95\n-i\n1",
                          "help\nclock",
                          "--out-of-band\nps",
                          "--deadline\n2\nwhy\nfan_speed"};
    const std::string readings = "tools/readings/", exporter = "tools/exporter/";
    const inputs readings_texts = {"48\n", "16.0 GT/s PCIe\n", "1 2 3 4\n5 6 7 8\n", "RxErr 1\nTOTAL_ERR_FATAL 12\n",
                                   "unknown\n"};
    const inputs unit_files = {"# this host\ntemperature = millicelsius\nmemory=kibibyte # as ever\r\n",
                               "power = milliwatt\nclock = hertz\n", "power\n", "fan = rpm\n"};
    const inputs requests = {
        "GET /metrics HTTP/1.1\r\nHost: a\r\nAccept: "
        "application/openmetrics-text;version=1.0.0;q=0.7,text/plain;q=0.5"
        "\r\nX-Prometheus-Scrape-Timeout-Seconds: 0.5\r\n\r\n",
        "HEAD /?x=%2e HTTP/1.0\r\n\r\n", "POST /healthz HTTP/1.1\r\nHost: a\r\nContent-Length: 3\r\n\r\nabc",
        "GET /none HTTP/1.1\r\nHost: a\r\n\r\nGET / HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n",
        "PUT / HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\nExpect: "
        "100-continue\r\n\r\n3\r\nabc\r\n0\r\n\r\n"};
    const inputs logins = {
        "GET /metrics HTTP/1.1\r\nHost: a\r\nAuthorization: Basic YWRhOmZpcnN0\r\n\r\n",
        "GET / HTTP/1.1\r\nHost: a\r\nAuthorization: Bearer ada\r\nAuthorization: Basic !!!\r\n\r\n",
        "GET /healthz HTTP/1.0\r\nAuthorization: Digest username=\"ada\", realm=\"metrics\"\r\n\r\n"};
    const inputs web_configs = {
        "tls_server_config:\n  cert_file: none.crt\n  key_file: none.key\n  client_ca_file: a\n"
        "  client_auth_type: RequireAndVerifyClientCert\n  min_version: TLS13\n",
        "basic_auth_users:\n  ada: $2y$10$abcdefghijklmnopqrstuu5Lo0g67CiD3M4RpN1BmBb4Crp5w7dbK\n",
        "basic_auth_users: {ada: &x y, \"b\\e[1mb\": *x, ? [a] : !!str c}\n# end\n", "--- |\n a\n...\n"};
    const inputs odd_texts = {"Prüfstück 5 °C\x9b\u202e\ufeff", "a\tb\x7f\xc2\x9b\xed\xa0\x80\xf4\x90\x80\x80"};
    return {{"arguments", "tools/veksmi/command_line.cpp", take_arguments, lines},
            {"completion", "tools/veksmi/completion.cpp", complete, lines},
            {"mask", "tools/veksmi/report_mask.cpp", mask, texts_to_mask()},
            {"fields", readings + "pci_link.cpp", read_fields, readings_texts, add_gpu},
            {"message", readings + "message.cpp", take_message, {sample_message(), sample_request()}},
            {"units", readings + "units.cpp", take_units, unit_files},
            {"request", exporter + "server.cpp", run_request, requests},
            {"login", exporter + "gate.cpp", run_login, logins},
            {"web_config", exporter + "web_config.cpp", run_web_config, web_configs},
            {"printable", readings + "value.cpp", take_text, odd_texts}};
}
