// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tree.h"

#include <cstdint>
#include <sys/stat.h>
#include <sys/types.h>

namespace veksim {

// What a descriptor of this process was opened on; an attribute is a sysfs node opened for writing.
enum class opened : std::uint8_t { ordinary, attribute, card };
opened opened_on(const host_path &path, bool writing);
opened kind_of(int fd);
void set_kind(int fd, opened kind);
// Descriptors opened by the program that started this one (a shell's "> node") are ours as well.
void adopt_standard_descriptors();

bool card_of_path(const char *path_in_tree, unsigned *card);
bool card_of_descriptor(int fd, unsigned *card);
constexpr unsigned drm_major = 226;
void make_character_device(struct stat *info, unsigned card);
int stat_descriptor(int fd, struct stat *info);

ssize_t store_attribute(int fd, const void *bytes, std::size_t size);

} // namespace veksim
