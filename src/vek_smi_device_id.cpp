// SPDX-License-Identifier: Apache-2.0
#include "vekml.h"

#include "debug_log.h"
#include "vek_smi_utils.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

using namespace vekml;

// ---- The tables ----

#define MODEL(...) {__VA_ARGS__},
#define BOARD(...)
constexpr vekml_id_model_t idModelArray[VEKML_MODELS] = {
#include "product_list.inc"
};
#undef MODEL
#undef BOARD

#define MODEL(...)
#define BOARD(name, part_number, config, device_id, subsystem_vendor_id, subsystem_device_id) \
    {name, part_number, config, VEKGPU_PCI_VENDOR_ID, device_id, subsystem_vendor_id, subsystem_device_id},
constexpr vekml_board_t talonProductArr[VEKML_BOARDS] = {
#include "product_list.inc"
};
#undef MODEL
#undef BOARD

const char *const asic_types[VEKML_ASIC_TYPES] = {"CHIP_TALON_A0", "CHIP_TALON_B0", "CHIP_LAST"};

namespace {

constexpr char maker_word[] = "VEK";
constexpr char unknown_text[] = "unknown";
constexpr std::uint32_t smallest_model_capacity = 8;
constexpr std::size_t capability_size = 9; // what clients keep for a video capability text

// ---- What every product list must keep to ----

constexpr bool same_profile(const vekml_id_model_t &row, const vekml_id_model_t &profile)
{
    return row.chip_process == profile.chip_process && row.lower_bound == profile.lower_bound &&
           row.upper_bound == profile.upper_bound && row.gddr_width == profile.gddr_width &&
           std::string_view(row.decoder) == profile.decoder && std::string_view(row.encoder) == profile.encoder;
}

/** The maker's word, then perhaps a blank and a letter, digits, and perhaps a blank and a suffix. */
constexpr bool is_model_name(std::string_view name)
{
    if (name.size() > 12 || !name.starts_with(maker_word))
        return false;
    std::string_view rest = name.substr(std::string_view(maker_word).size());
    if (rest.starts_with(' ') && rest.size() > 1 && rest[1] >= 'A' && rest[1] <= 'Z')
        rest.remove_prefix(2);
    const std::size_t digits = std::min(rest.find_first_not_of("0123456789"), rest.size());
    return digits > 0 && (digits == rest.size() || (rest[digits] == ' ' && digits + 1 < rest.size()));
}

/** By position in the table: the first boards leave their subsystem out. */
constexpr bool has_its_subsystem(const vekml_board_t &board)
{
    constexpr std::uint32_t ids[VEKML_BOARDS] = {0, 0, 0, 0, 0, 0, 0, 0x11, 0x2, 0x12, 0x22};
    const auto row = &board - talonProductArr;
    return board.vendor_id == VEKGPU_PCI_VENDOR_ID && board.subsystem_device_id == ids[row] &&
           board.subsystem_vendor_id == (row < 5 ? 0 : VEKGPU_PCI_VENDOR_ID);
}

/** Capability profiles; the first column counts the models that carry each. */
constexpr vekml_id_model_t profiles[] = {
    {4, "", 12, 50, 1000, 32, "4K60", "1080p60"},    {1, "", 12, 50, 1200, 32, "4K60", "1080p60"},
    {1, "", 12, 400, 1000, 32, "4K60", "1080p60"},   {1, "", 12, 400, 1200, 32, "4K60", "1080p60"},
    {12, "", 12, 50, 1000, 64, "4K60", "1080p120"},  {2, "", 12, 400, 1000, 64, "4K60", "1080p120"},
    {2, "", 12, 400, 1200, 64, "4K60", "1080p120"},  {3, "", 12, 400, 1300, 64, "4K60", "1080p120"},
    {1, "", 12, 400, 800, 64, "4K60", "1080p120"},   {1, "", 12, 50, 1200, 64, "4K60", "4K60"},
    {1, "", 12, 50, 1000, 64, "4K120", "4K60"},      {1, "", 12, 50, 1000, 128, "4K60", "1080p120"},
    {1, "", 12, 50, 1200, 128, "4K60", "1080p120"},  {9, "", 12, 50, 1000, 128, "4K120", "4K60"},
    {4, "", 12, 50, 1200, 128, "4K120", "4K60"},     {2, "", 12, 400, 1000, 128, "4K120", "4K60"},
    {2, "", 12, 50, 1000, 128, "4K120*2", "4K60*2"}, {1, "", 12, 50, 1200, 256, "4K120*2", "4K60*2"},
    {1, "", 12, 50, 1000, 256, "4K120*4", "4K60*4"}, {1, "", 12, 50, 1200, 128, "4K120*4", "4K60*4"},
    {1, "", 12, 50, 400, 128, "4K180*2", "4K90*2"},  {1, "", 12, 50, 400, 256, "4K180*4", "4K90*4"},
};

static_assert(std::all_of(std::begin(profiles), std::end(profiles),
                          [](const auto &profile) {
                              return std::count_if(std::begin(idModelArray), std::end(idModelArray),
                                                   [&](const auto &row) { return same_profile(row, profile); }) ==
                                     static_cast<long>(profile.device_id);
                          }),
              "each capability profile is carried by its number of models");
static_assert(std::all_of(std::begin(idModelArray), std::end(idModelArray),
                          [](const auto &row) {
                              return std::count_if(std::begin(idModelArray), std::end(idModelArray),
                                                   [&](const auto &other) {
                                                       return other.device_id == row.device_id ||
                                                              std::string_view(other.model) == row.model;
                                                   }) == 1;
                          }),
              "device ids and model names are unique");
static_assert(std::all_of(std::begin(idModelArray), std::end(idModelArray),
                          [](const auto &row) {
                              return is_model_name(row.model) &&
                                     std::string_view(row.decoder).size() < capability_size &&
                                     std::string_view(row.encoder).size() < capability_size;
                          }),
              "model names have their form and fit their clients' buffers, as do the capability texts");
static_assert(std::all_of(std::begin(talonProductArr), std::end(talonProductArr),
                          [](const auto &board) {
                              return std::any_of(std::begin(idModelArray), std::end(idModelArray),
                                                 [&](const auto &row) { return row.device_id == board.device_id; });
                          }),
              "every board carries a model");
static_assert(std::all_of(std::begin(talonProductArr), std::end(talonProductArr), has_its_subsystem),
              "every board has its subsystem ids");

// ---- Lookups without a trace ----

/** A board needs no lookup of its own: its id is that of a model. */
const vekml_id_model_t *find_model(std::uint32_t device_id)
{
    const auto *row = std::find_if(std::begin(idModelArray), std::end(idModelArray),
                                   [&](const auto &model) { return model.device_id == device_id; });
    return row == std::end(idModelArray) ? nullptr : row;
}

/** At most size - 1 characters, padded with NULs up to there; the last byte belongs to the caller. */
void copy_name(char *dst, std::uint32_t size, const char *name)
{
    if (size > 1)
        strncpy(dst, name, size - 1);
}

} // namespace

vekml_return_t device_id_to_model(uint32_t device_id, char *model, uint32_t size)
{
    const auto *row = find_model(device_id);
    if (row == nullptr) {
        TRACE("Unkonwn device id: %u", device_id);
        copy_name(model, size, unknown_text);
        return VEKML_ERROR_NOT_FOUND;
    }
    if (size < smallest_model_capacity) {
        TRACE("insufficient device model size, device_id is %u, size is %u", device_id, size);
        return VEKML_ERROR_INVALID_ARGUMENT;
    }
    copy_name(model, size, row->model);
    return VEKML_SUCCESS;
}

vekml_return_t device_id_to_model_with_size(uint32_t device_id, char *model, uint32_t size)
{
    const auto *row = find_model(device_id);
    if (row == nullptr) {
        TRACE("Check device id to model meet unkonwn device id: %u", device_id);
        copy_name(model, size, unknown_text);
        return VEKML_ERROR_NOT_FOUND;
    }
    copy_name(model, size, row->model);
    return VEKML_SUCCESS;
}

vekml_return_t model_to_device_id_and_chip_process(const char *model, uint32_t *device_id, uint32_t *chip_process)
{
    if (model == nullptr || device_id == nullptr || chip_process == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    for (const auto &row : idModelArray) {
        if (strcmp(row.model, model) == 0) {
            *device_id = row.device_id;
            *chip_process = row.chip_process;
            return VEKML_SUCCESS;
        }
    }
    TRACE("Check model to device id meet unkonwn model: %s", model);
    return VEKML_ERROR_NOT_FOUND;
}

vekml_return_t device_id_to_chip_process(uint32_t device_id, uint32_t *chip_process)
{
    if (chip_process == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    if (const auto *row = find_model(device_id)) {
        *chip_process = row->chip_process;
        return VEKML_SUCCESS;
    }
    TRACE_OPEN("Check device id to chip process meet unkonwn device id: %u", device_id);
    return VEKML_ERROR_NOT_FOUND;
}

vekml_return_t is_right_device_id(uint32_t device_id)
{
    return find_model(device_id) != nullptr ? VEKML_SUCCESS : VEKML_ERROR_NOT_FOUND;
}

vekml_return_t vekml_device_id_to_gddr_width(uint32_t device_id, uint32_t *gddr_width)
{
    TRACE("\nentervekml_device_id_to_gddr_width");
    TRACE("input device_id:%x", device_id);
    const auto *row = find_model(device_id);
    *gddr_width = row != nullptr ? row->gddr_width : 0;
    TRACE("*gddr_width:%u", *gddr_width);
    if (row != nullptr)
        return VEKML_SUCCESS;
    TRACE("exit vekml_device_id_to_gddr_width");
    return VEKML_ERROR_NOT_FOUND;
}

vekml_return_t vekml_device_id_to_gfx_bound(uint32_t device_id, uint32_t *lower_bound, uint32_t *upper_bound)
{
    constexpr std::uint32_t default_lower_bound = 50;
    constexpr std::uint32_t default_upper_bound = 1000;

    TRACE("\nenter vekml_device_id_to_gfx_bound");
    TRACE("input device_id:%x", device_id);
    const auto *row = find_model(device_id);
    *lower_bound = row != nullptr ? row->lower_bound : default_lower_bound;
    *upper_bound = row != nullptr ? row->upper_bound : default_upper_bound;
    TRACE("*lower_bound:%d *upper_bound:%d", *lower_bound, *upper_bound);
    if (row != nullptr)
        return VEKML_SUCCESS;
    TRACE("exit vekml_device_id_to_gfx_bound");
    return VEKML_ERROR_NOT_FOUND;
}

vekml_return_t device_id_to_video_decoder_encoder(uint32_t device_id, char *decoder, char *encoder)
{
    TRACE("\nenter device_id_to_video_decoder_encoder");
    const auto *row = find_model(device_id);
    copy_text(decoder, capability_size, row != nullptr ? row->decoder : unknown_text);
    copy_text(encoder, capability_size, row != nullptr ? row->encoder : unknown_text);
    TRACE("device id: %x decoder:%s", device_id, decoder);
    TRACE("encoder:%s", encoder);
    TRACE("\nexit device_id_to_video_decoder_encoder");
    return row != nullptr ? VEKML_SUCCESS : VEKML_ERROR_NOT_FOUND;
}

void parse_device_model(const char *text, char *model, uint32_t size)
{
    TRACE("chip_model_src_str = %s", text);
    if (size == 0)
        return;
    if (strstr(text, maker_word) == nullptr) {
        TRACE("parse unknown");
        copy_text(model, size, unknown_text);
        return;
    }
    const char *last_blank = strrchr(text, ' ');
    copy_text(model, size, last_blank != nullptr ? text : unknown_text);
    if (last_blank != nullptr && last_blank - text < static_cast<long>(size))
        model[last_blank - text] = '\0';
    TRACE("chip_device_model = %s", model);
}
