// SPDX-License-Identifier: Apache-2.0
// Where a GPU sits: its NUMA node, the CPUs nearest to it, and each step of its way through the PCI Express fabric.
#include "output.h"
#include "readings/node.h"
#include "readings/pci_address.h"
#include "session.h"

#include <cstdlib>
#include <memory>

namespace {

json text_of_node(const std::string &path)
{
    const auto found = read_node(path);
    const auto *text = std::get_if<std::string>(&found);
    const value held = text == nullptr ? value(missing{}) : text_value(*text);
    return is_present(held) ? json(text_of(held)) : json();
}

// "16.0 GT/s PCIe" is 16; what is no number is nothing.
json number_of_node(const std::string &path)
{
    const json text = text_of_node(path);
    const double number = text.is_string() ? std::strtod(text.get_ref<const std::string &>().c_str(), nullptr) : 0;
    if (!(number > 0 && number < 1e6))
        return nullptr;
    const auto whole = static_cast<std::int64_t>(number);
    return static_cast<double>(whole) == number ? json(whole) : json(number);
}

json step_at(const std::string &folder, const std::string &name)
{
    return {{"bus_id", name},
            {"speed_gts", number_of_node(folder + "/current_link_speed")},
            {"speed_max_gts", number_of_node(folder + "/max_link_speed")},
            {"width", number_of_node(folder + "/current_link_width")},
            {"width_max", number_of_node(folder + "/max_link_width")}};
}

// In the reader of the GPU.
json topology_of(gpu &g, const json &)
{
    if (g.driverless())
        return nullptr;
    const std::string device = g.card_node("device");
    json path = json::array();
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(device.c_str(), nullptr), &std::free);
    const std::string folder = real ? real.get() : "";
    for (std::size_t at = 0; at != folder.npos && at < folder.size();) {
        const std::size_t end = std::min(folder.find('/', at + 1), folder.size());
        const std::string name = folder.substr(at + 1, end - at - 1);
        if (is_bus_id(name))
            path.push_back(step_at(folder.substr(0, end), name));
        at = end;
    }
    const value node = number_in(device + "/numa_node");
    const auto *number = std::get_if<std::int64_t>(&node);
    return {{"numa_node", number == nullptr || *number < 0 ? json() : json(*number)},
            {"cpu_affinity", text_of_node(device + "/local_cpulist")},
            {"path", std::move(path)}};
}

std::string link_text(const json &step, const char *speed, const char *width)
{
    if (step.at(speed).is_null() || step.at(width).is_null())
        return "N/A";
    return fmt::format("{:g} GT/s x{:g}", step.at(speed).get<double>(), step.at(width).get<double>());
}

std::string text_or_none(const json &held)
{
    return held.is_null() ? "N/A" : printable(held.is_string() ? held.get<std::string>() : held.dump());
}

void print_gpu(const answer &gpu, const json &place)
{
    print("{}\n", paint(colour::bold, heading_of(gpu, pick<"model", "bus_id">())));
    if (place.is_null()) {
        print("  {}\n", gpu.state == gpu_state::ok ? "N/A" : what_became_of(gpu));
        return;
    }
    print("  NUMA node {}, CPUs {}\n", text_or_none(place.at("numa_node")), text_or_none(place.at("cpu_affinity")));
    std::string indent = "  ";
    for (const json &step : place.at("path")) {
        const std::string now = link_text(step, "speed_gts", "width"),
                          best = link_text(step, "speed_max_gts", "width_max");
        print("{}{}  {}{}\n", indent, printable(step.at("bus_id").get<std::string>()), now,
              now == best ? "" : fmt::format(", at best {}", best));
        indent += "  ";
    }
}

} // namespace

const extension topology_extension = {"topology", topology_of};

int show_topology(const options &wanted, session &gpus)
{
    const answers said =
        gpus.ask({.fields = pick<"model", "bus_id">(), .more = {{topology_extension.name, json::object()}}});
    json list = json::array();
    if (wanted.shape == format::csv)
        put("index,numa_node,cpu_affinity,bus_id,speed_gts,speed_max_gts,width,width_max\n");
    for (const answer &gpu : said) {
        const json place = gpu.more.value(topology_extension.name, json());
        if (wanted.shape == format::json) {
            list.push_back(object_of(gpu));
            list.back()["topology"] = place;
        } else if (wanted.shape == format::csv) {
            for (const json &step : place.is_null() ? json::array() : place.at("path")) {
                std::vector<std::string> row = {std::to_string(gpu.index)};
                for (const json *held :
                     {&place.at("numa_node"), &place.at("cpu_affinity"), &step.at("bus_id"), &step.at("speed_gts"),
                      &step.at("speed_max_gts"), &step.at("width"), &step.at("width_max")})
                    row.push_back(held->is_null()           ? ""
                                  : held->is_string()       ? held->get<std::string>()
                                  : held->is_number_float() ? fmt::format("{:g}", held->get<double>())
                                                            : held->dump());
                put(csv_row(row));
            }
        } else {
            put(&gpu == said.data() ? "" : "\n");
            print_gpu(gpu, place);
        }
    }
    if (wanted.shape == format::json)
        print_document(std::move(list), json::object(), {{"speed_gts", "GT/s"}, {"speed_max_gts", "GT/s"}});
    return status_of(said);
}
