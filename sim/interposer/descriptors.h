// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tree.h"

#include <cstdint>
#include <sys/stat.h>
#include <sys/types.h>

namespace veksim {

// What a descriptor of this process was opened on; an attribute is a sysfs node opened for writing. What is held stands
// for a node that cannot be read now.
enum class opened : std::uint8_t { ordinary, attribute, card, held, held_for_writing };
opened opened_on(const host_path &path, bool writing);
opened kind_of(int fd);
void set_kind(int fd, opened kind);
// Descriptors opened by the program that started this one (a shell's "> node") are ours as well.
void adopt_standard_descriptors();

// Where the node of a descriptor is in the tree, or was; into a buffer of PATH_MAX.
bool node_of_descriptor(int fd, char *path);
bool is_held(int fd);

bool card_of_path(const char *path_in_tree, unsigned *card);
bool card_of_descriptor(int fd, unsigned *card);
constexpr unsigned drm_major = 226;
void make_character_device(struct stat *info, unsigned card);
constexpr std::size_t largest_attribute = 4096; // as the kernel has it
void make_attribute(struct stat *info);
int stat_descriptor(int fd, struct stat *info);

} // namespace veksim
