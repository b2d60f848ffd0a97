// SPDX-License-Identifier: Apache-2.0
// Why values are missing, and what to do about it.
#include "output.h"
#include "session.h"

#include <algorithm>
#include <cstring>

namespace {

struct explanation {
    const answer &gpu;
    const field &of;
    const missing &none;
};

std::string cause(const explanation &e)
{
    const auto &[gpu, of, none] = e;
    switch (none.why) {
    case reason::absent:
        return none.node.empty() ? "nothing here tells it" : "the driver has no such node";
    case reason::denied:
        return "the node may not be read by this user";
    case reason::failed:
        return none.error == 0 ? "reading failed" : fmt::format("reading failed: {}", std::strerror(none.error));
    case reason::malformed:
        return "the node holds something else than expected";
    case reason::unsupported:
        return &of == &firmware_field ? "only the firmware tells it, and the driver was asked"
                                      : "the GPU says that it has no such thing";
    case reason::driverless:
        return "only the driver tells it, and it was not asked";
    default:
        return fmt::format("the GPU is {}", what_became_of(gpu));
    }
}

const char *advice(const explanation &e)
{
    const auto &[gpu, of, none] = e;
    switch (none.why) {
    case reason::absent:
        return none.node.empty() ? "this model or host does not have it"
                                 : "see whether the model has it; a newer driver may tell it";
    case reason::denied:
        return "try as root";
    case reason::failed:
        return "see the kernel's log (dmesg) and /tmp/smi.log";
    case reason::malformed:
        return "look at the node; a bug report to the driver's maker may be due";
    case reason::unsupported:
        return &of == &firmware_field ? "--out-of-band asks it, as root" : "nothing is wrong";
    case reason::driverless:
        return "load the driver and leave out --out-of-band";
    case reason::asleep:
        return "--wake asks it all the same, and wakes it";
    case reason::stuck:
        return "see the kernel's log (dmesg); --deadline waits longer; the GPU may need a reset";
    case reason::crashed:
        return "a bug report is due; see the kernel's log (dmesg)";
    default:
        return "see the kernel's log (dmesg) and the PCIe link; the GPU has left the bus";
    }
}

std::vector<explanation> explanations(const field_list &fields, const answers &said)
{
    std::vector<explanation> list;
    for (const answer &gpu : said) {
        for (const field *f : fields) {
            if (const missing *none = why_missing(gpu[*f]))
                list.push_back({gpu, *f, *none});
        }
    }
    return list;
}

void print_json(const std::vector<explanation> &list, const answers &said)
{
    json gpus = json::array();
    for (const answer &gpu : said) {
        json reasons = json::array();
        for (const explanation &e : list) {
            if (&e.gpu == &gpu)
                reasons.push_back({{"field", e.of.key},
                                   {"reason", name_of(e.none.why)},
                                   {"node", e.none.node.empty() ? json() : json(e.none.node)},
                                   {"errno", e.none.error == 0 ? json() : json(e.none.error)},
                                   {"explanation", cause(e)},
                                   {"advice", advice(e)}});
        }
        gpus.push_back(object_of(gpu));
        gpus.back()["why"] = std::move(reasons);
    }
    print_document(std::move(gpus));
}

// Once for all fields of a GPU that are missing for the same reason. What is wrong with the GPU itself is wrong with all
// of them: they are named only where they were asked for.
void print_sentences(const std::vector<explanation> &list, bool named)
{
    std::vector<const explanation *> left(list.size());
    std::transform(list.begin(), list.end(), left.begin(), [](const explanation &e) { return &e; });
    while (!left.empty()) {
        const explanation &first = *left.front();
        std::vector<std::string_view> keys;
        std::erase_if(left, [&](const explanation *e) {
            const bool alike = &e->gpu == &first.gpu && cause(*e) == cause(first) && e->none == first.none;
            if (alike)
                keys.push_back(e->of.key);
            return alike;
        });
        const std::string of =
            named || first.gpu.state == gpu_state::ok ? fmt::format(" {}", fmt::join(keys, ", ")) : "";
        put_wrapped(fmt::format("GPU {}{}: {}\n", first.gpu.index, of, cause(first)));
        if (!first.none.node.empty())
            print("  {}\n", printable(first.none.node));
        put_wrapped(fmt::format("  {}\n", advice(first)));
    }
}

} // namespace

int explain_missing(const options &wanted, session &gpus)
{
    field_list fields;
    for (const std::string &word : wanted.words) {
        const field_list more = parse_fields(word);
        fields.insert(fields.end(), more.begin(), more.end());
    }
    const bool named = !fields.empty();
    for (const field &f : all_fields) {
        if (!named && (&f != &firmware_field || wanted.out_of_band))
            fields.push_back(&f);
    }
    const answers said = gpus.ask({.fields = fields});
    const std::vector<explanation> list = explanations(fields, said);
    if (wanted.shape == format::json) {
        print_json(list, said);
        return status_of(said);
    }
    if (wanted.shape == format::csv) {
        put("index,field,reason,node,explanation,advice\n");
        for (const explanation &e : list)
            put(csv_row(
                {std::to_string(e.gpu.index), e.of.key, name_of(e.none.why), e.none.node, cause(e), advice(e)}));
        return status_of(said);
    }
    print_sentences(list, named);
    for (const answer &gpu : said) {
        for (const field *f : named ? fields : field_list{}) {
            if (is_present(gpu[*f]))
                print("GPU {} {}: it is there: {}\n", gpu.index, f->key, shown(gpu, *f));
        }
    }
    if (list.empty() && !named)
        put("No value is missing.\n");
    return status_of(said);
}
