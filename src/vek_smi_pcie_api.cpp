// SPDX-License-Identifier: Apache-2.0
#include "vekml.h"

#include "debug_log.h"
#include "vek_smi_utils.h"

#include <cstring>

using namespace vekml;

namespace {

/** One of the kernel's error reports on a PCIe device. */
struct error_report {
    const char *node;
    const char *total; /**< what stands before the total */
    const char *unreadable;
};

constexpr error_report correctable_errors{"/device/aer_dev_correctable", "TOTAL_ERR_COR ",
                                          "read aer_dev_correctable error"};
constexpr error_report fatal_errors{"/device/aer_dev_fatal", "TOTAL_ERR_FATAL ", "read aer_dev_fatal error"};
constexpr error_report nonfatal_errors{"/device/aer_dev_nonfatal", "TOTAL_ERR_NONFATAL ",
                                       "read aer_dev_nonfatal error"};

/** Hand out what initialisation found of the link; only the handle is checked. */
vekml_return_t get_link_value(vekml_device_t handle, uint32_t vekml_device_record_t::*field, uint32_t *value)
{
    if (handle == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    *value = handle->*field;
    return VEKML_SUCCESS;
}

/** Store the first digit of the total, and nothing else: `count` stays without a terminator. */
vekml_return_t read_error_total(const char *function, const char *card_path, const error_report &report, char *count)
{
    node_text<node_capacity> text; // the total stands on the last line, behind a line per kind of error
    if (text.read(card_path, report.node) != 0) {
        copy_text(count, sizeof "N/A", "N/A");
        TRACE_AS(function, "%s", report.unreadable);
        return VEKML_ERROR_NODE_IO;
    }
    const char *total = strstr(text.text, report.total);
    if (total == nullptr || total[strlen(report.total)] == '\0')
        return VEKML_ERROR_NODE_IO;
    *count = total[strlen(report.total)];
    TRACE_AS(function, "exit %s", function);
    return VEKML_SUCCESS;
}

} // namespace

// ---- The link, as initialisation found it ----

vekml_return_t vekml_device_get_pcie_speed(vekml_device_t handle, uint32_t *speed)
{
    return get_link_value(handle, &vekml_device_record_t::curr_link_speed, speed);
}

vekml_return_t vekml_device_get_curr_pcie_link_width(vekml_device_t handle, uint32_t *width)
{
    return get_link_value(handle, &vekml_device_record_t::curr_link_width, width);
}

vekml_return_t vekml_device_get_pcie_link_max_speed(vekml_device_t handle, uint32_t *speed)
{
    return get_link_value(handle, &vekml_device_record_t::max_link_speed, speed);
}

vekml_return_t vekml_device_get_max_pcie_link_width(vekml_device_t handle, uint32_t *width)
{
    return get_link_value(handle, &vekml_device_record_t::max_link_width, width);
}

vekml_return_t vekml_device_get_curr_pcie_link_generation(vekml_device_t handle, uint32_t *generation)
{
    return get_link_value(handle, &vekml_device_record_t::curr_link_generation, generation);
}

vekml_return_t vekml_device_get_max_pcie_link_generation(vekml_device_t handle, uint32_t *generation)
{
    return get_link_value(handle, &vekml_device_record_t::max_link_generation, generation);
}

vekml_return_t vekml_device_get_pcie_throughput(vekml_device_t device, char *dst)
{
    node_text<20> speed;
    speed.read(device->card_path, "/device/current_link_speed");
    copy_text(dst, sizeof speed.text, speed.text);
    return VEKML_SUCCESS;
}

// ---- Events and errors ----

vekml_return_t vekml_device_get_pcie_event(vekml_device_t device, vekml_pcie_event_t *event)
{
    node_text<20> word;
    word.read(device->hwmon_path, "/vek_pcie_event");
    event->event = static_cast<uint32_t>(word.number());
    TRACE("pcie_event:%d", event->event);
    for (unsigned bit = 0; bit < sizeof event->flags; ++bit)
        event->flags[bit] = static_cast<uint8_t>(event->event >> bit & 1);
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_pcie_mmbar_type(vekml_device_t device, char *type)
{
    node_text<20> text;
    if (text.read(device->hwmon_path, "/vek_pcie_mmbar_type") != 0) {
        TRACE("read vek_pcie_mmbar_type error");
        return VEKML_ERROR_NODE_IO;
    }
    copy_text(type, sizeof text.text, text.text);
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_pcie_err_nonfatal(const char *card_path, char *count)
{
    TRACE("enter vekml_device_get_pcie_err_nonfatal");
    return read_error_total(__func__, card_path, nonfatal_errors, count);
}

vekml_return_t vekml_device_get_pcie_err_fatal(const char *card_path, char *count)
{
    TRACE("enter vekml_device_get_pcie_err_fatal");
    return read_error_total(__func__, card_path, fatal_errors, count);
}

vekml_return_t vekml_device_get_pcie_err_corr(const char *card_path, char *count)
{
    TRACE("enter vekml_device_get_pcie_err_corr");
    return read_error_total(__func__, card_path, correctable_errors, count);
}
