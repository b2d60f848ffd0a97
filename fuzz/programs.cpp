// SPDX-License-Identifier: Apache-2.0
//
// What reaches the programs from elsewhere: vekgpu_fuzz --target=NAME FOLDER [libFuzzer's options].
// vekgpu_fuzz --seeds=FOLDER fills FOLDER/NAME for every target and prints the names.
#include "arguments.h"
#include "exporter.h"

#include "readings/message.h"
#include "readings/units.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using namespace readings;
namespace fs = std::filesystem;

void must(bool holds)
{
    if (!holds)
        abort();
}

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

struct target {
    const char *name;
    void (*run)(const std::string &);
    std::vector<std::string> seeds;
};

std::vector<target> all_targets()
{
    return {
        {"arguments",
         run_arguments,
         {"list", "-i\n0\ninfo", "query\n--fields\ntemperature,power\n--format\njson", "monitor\n-n\n0.5\n-c\n3",
          "--gpu\n0000:03:00.0\nfan\nset\nfan\n60", "temp\nset\nmax\n95\n-i\n1", "help\nclock", "--out-of-band\nps",
          "--deadline\n2\nwhy\nfan_speed"}},
        {"message", take_message, {sample_message(), sample_request()}},
        {"units",
         take_units,
         {"# this host\ntemperature = millicelsius\nmemory=kibibyte # as ever\r\n",
          "power = milliwatt\nclock = hertz\n", "power\n", "fan = rpm\n"}},
        {"request",
         run_request,
         {"GET /metrics HTTP/1.1\r\nHost: a\r\nAccept: "
          "application/openmetrics-text;version=1.0.0;q=0.7,text/plain;q=0.5"
          "\r\nX-Prometheus-Scrape-Timeout-Seconds: 0.5\r\n\r\n",
          "HEAD /?x=%2e HTTP/1.0\r\n\r\n", "POST /healthz HTTP/1.1\r\nHost: a\r\nContent-Length: 3\r\n\r\nabc",
          "GET /none HTTP/1.1\r\nHost: a\r\n\r\nGET / HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n",
          "PUT / HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\nExpect: "
          "100-continue\r\n\r\n3\r\nabc\r\n0\r\n\r\n"}},
        {"login",
         run_login,
         {"GET /metrics HTTP/1.1\r\nHost: a\r\nAuthorization: Basic YWRhOmZpcnN0\r\n\r\n",
          "GET / HTTP/1.1\r\nHost: a\r\nAuthorization: Bearer ada\r\nAuthorization: Basic !!!\r\n\r\n",
          "GET /healthz HTTP/1.0\r\nAuthorization: Digest username=\"ada\", realm=\"metrics\"\r\n\r\n"}},
        {"web_config",
         run_web_config,
         {"tls_server_config:\n  cert_file: none.crt\n  key_file: none.key\n  client_ca_file: a\n"
          "  client_auth_type: RequireAndVerifyClientCert\n  min_version: TLS13\n",
          "basic_auth_users:\n  ada: $2y$10$abcdefghijklmnopqrstuu5Lo0g67CiD3M4RpN1BmBb4Crp5w7dbK\n",
          "basic_auth_users: {ada: &x y, \"b\\e[1mb\": *x, ? [a] : !!str c}\n# end\n", "--- |\n a\n...\n"}},
        {"printable", take_text, {"Prüfstück 5 °C\x9b\u202e\ufeff", "a\tb\x7f\xc2\x9b\xed\xa0\x80\xf4\x90\x80\x80"}}};
}

target chosen;

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    for (const std::string argument : std::vector<char *>(*argv, *argv + *argc)) {
        const std::string value = argument.substr(argument.find('=') + 1);
        for (const target &each : all_targets()) {
            if (argument == std::string("--target=") + each.name)
                chosen = each;
            if (argument.rfind("--seeds=", 0) != 0)
                continue;
            fs::create_directories(fs::path(value) / each.name);
            for (const std::string &seed : each.seeds)
                std::ofstream(fs::path(value) / each.name / ("seed-" + std::to_string(std::hash<std::string>()(seed))),
                              std::ios::binary)
                    << seed;
            std::printf("%s\n", each.name);
        }
        if (argument.rfind("--seeds=", 0) == 0)
            std::exit(0);
    }
    if (chosen.run == nullptr) {
        std::fprintf(stderr, "vekgpu_fuzz: --target=NAME or --seeds=FOLDER is missing\n");
        std::exit(1);
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size)
{
    chosen.run(std::string(reinterpret_cast<const char *>(data), size));
    return 0;
}
