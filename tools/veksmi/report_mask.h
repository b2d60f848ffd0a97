// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

// What of a text goes into a report. Only what is known to tell nothing of who uses the host, or which piece of hardware
// it is, is kept.
enum class content : std::uint8_t {
    kept,
    chip_id,         // one hexadecimal number
    static_facts,    // numbers, one of which is the chip id
    static_reply,    // the same as the driver's record
    counters_reply,  // 64-bit numbers
    processes_reply, // records of a process each
    configuration,   // of a PCI device: its serial number goes
    driver_dump,     // known lines are kept
    trace,           // known messages are kept
    process_status,  // known lines are kept
    process_name,
    package_list,     // lines of packages that have to do with GPUs
    seen_not_recorded // read to decide by
};

// Puts the same placeholder in the place of the same thing throughout a report.
class report_mask {
public:
    explicit report_mask(bool keep_all) : keep_all_(keep_all) {}

    void learn(content what, std::string_view text); // the chip ids and names in it, before anything is masked
    std::string masked(content what, std::string text);

private:
    std::string chip_placeholder(std::uint32_t id);
    std::string name_placeholder(std::string_view name);
    void learn_chip(std::uint32_t id);
    std::string without_secrets(std::string text) const;
    std::string static_facts(const std::string &text);
    std::string static_reply(std::string bytes);
    std::string status(const std::string &text);

    bool keep_all_;
    std::map<std::uint32_t, std::uint32_t> chips_{};
    std::map<std::string, std::string, std::less<>> names_{};
    std::map<std::string, std::string> secrets_{}; // and what stands for each
};

// The numbers that name processes in the memory node's text, and in the driver's reply.
std::vector<unsigned> processes_in(content what, std::string_view text);
