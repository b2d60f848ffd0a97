/* SPDX-License-Identifier: Apache-2.0 */

/**
 * @file vekml.h
 * The whole public interface of libvekgpu-ml: finding, reading and setting the maker's GPUs.
 *
 * Plain C, usable from C99 and C++. Every call but ::parse_device_model returns a ::vekml_return_t; all deliver through
 * pointers that the caller owns. Argument checks differ from call to call; each call states its own, and a pointer that
 * a call does not claim to check must be valid.
 *
 * Typical use:
 * @code
 *   vekml_init();
 *   vekml_device_get_count(&count);
 *   vekml_device_get_handle_by_index(0, &gpu);
 *   vekml_device_get_temper_info(gpu, &temperatures);
 *   vekml_shutdown();
 * @endcode
 *
 * Paths: CARD stands for the GPU's directory "/sys/class/drm/cardN", HWMON for its hwmon directory
 * "/sys/class/drm/cardN/device/hwmon/hwmonK". Where a unit is not given, it is the driver's own and the library
 * passes the number through.
 *
 * Every step is written to the debug log "/tmp/smi.log"; failures meant for the user are also printed on standard
 * output.
 *
 * Threads: the library starts none, and locks nothing but the one lookup of the video libraries. These must not run
 * beside any other call: ::vekml_init, ::vekml_init_card, ::vekml_out_of_band_init, ::vekml_pci_out_of_band_manager and
 * ::vekml_shutdown. All other calls may run side by side, each thread with records of its own, save for:
 * - ::vekml_device_get_uuid and ::vekml_device_query on the same GPU, each with itself and with the other, as both keep
 *   the UUID in the device record; the other whole-record queries too where they fall back on ::vekml_device_query;
 * - ::vekml_device_get_vpu_utlz on the same GPU, with itself: each call keeps its sample for the next;
 * - ::vekml_device_get_vpu_info until it has succeeded for the GPU: it changes the process environment, and so must not
 *   run beside itself, on whichever GPU, nor beside anything that reads or changes the environment. Of these calls,
 *   ::vekml_device_get_driver_release_version does, which starts a shell.
 */

#ifndef VEKML_H
#define VEKML_H

#include <stdint.h>

#if defined(__GNUC__)
#define VEKML_API __attribute__((visibility("default")))
#else
#define VEKML_API
#endif

/* A PCI device as libpciaccess describes it. */
struct pci_device;

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Result codes ------------------------------------------------------------------------------------------- */

/** Result of every call. The numbering is sparse and fixed. */
typedef enum vekml_return {
    /** The call did what was asked. */
    VEKML_SUCCESS = 0,
    /** A handle or an output pointer is null, an index is out of range, or a buffer is too small for a lookup. */
    VEKML_ERROR_INVALID_ARGUMENT = 2,
    /** The driver reports the value as unavailable, or the video engines have nothing to tell. */
    VEKML_ERROR_NOT_SUPPORTED = 3,
    /** The caller's effective user id is not 0, a device file or setting may not be opened, or the driver
     *  refuses the static request. */
    VEKML_ERROR_NO_PERMISSION = 4,
    /** A driver node is absent or unreadable, or an id or model is not in the identity tables. */
    VEKML_ERROR_NOT_FOUND = 6,
    /** The caller's text buffer cannot hold the answer and its terminating NUL. */
    VEKML_ERROR_INSUFFICIENT_SIZE = 7,
    /** The video acceleration libraries cannot be loaded. */
    VEKML_ERROR_LIBRARY_NOT_FOUND = 12,
    /** No GPU matches a PCI bus id. */
    VEKML_ERROR_NO_DATA = 21,
    /** Anything else: a node that a call cannot do without, VA-API, memory. */
    VEKML_ERROR_UNKNOWN = 999,
    /** A driver node could not be read or written, a mapping could not be made or released, or a setting is refused:
     *  unknown type, value out of range, another kind of fan. All bits set. */
    VEKML_ERROR_NODE_IO = -1
} vekml_return_t;

/* ---- Video codec capabilities ------------------------------------------------------------------------------- */

/** Number of VA profiles the library knows: profile values 0 to 36. */
#define VEKML_VPU_PROFILES 37
/** Number of image formats in every codec entry. */
#define VEKML_VPU_IMAGE_FORMATS 15
/** Number of bit-rate control methods in every encoder entry. */
#define VEKML_VPU_RATE_CONTROLS 12

/** One capability of a codec: an image format or a bit-rate control method. */
typedef struct vpu_cap_item {
    char name[64];      /**< name of the capability, for example "yuv420" or "cbr" */
    uint32_t supported; /**< 1 when the codec offers it, else 0 */
    uint32_t index;     /**< its slot number */
} vpu_cap_item;

/** One encoder. */
typedef struct vpu_encoder_item {
    char name[64];                                       /**< "PROFILE encoder" */
    uint32_t supported;                                  /**< 1 when the VA driver confirms it */
    uint32_t profile;                                    /**< VA profile value, 0 to 36 */
    vpu_cap_item image_formats[VEKML_VPU_IMAGE_FORMATS]; /**< image formats it accepts */
    vpu_cap_item rate_controls[VEKML_VPU_RATE_CONTROLS]; /**< bit-rate control methods it offers */
} vpu_encoder_item;

/** One decoder. */
typedef struct vpu_decoder_item {
    char name[64];                                       /**< "PROFILE decoder" */
    uint32_t supported;                                  /**< 1 when the VA driver confirms it */
    uint32_t profile;                                    /**< VA profile value, 0 to 36 */
    vpu_cap_item image_formats[VEKML_VPU_IMAGE_FORMATS]; /**< image formats it delivers */
} vpu_decoder_item;

/** Everything the video engines of one GPU can do. Over 100 KB: keep it off the stack. */
typedef struct Vpu_codec_info_st {
    char vendor[64];                               /**< VA vendor string; "UNKOWN" as initialised */
    uint32_t valid;                                /**< 1 once the profiles have been queried */
    vpu_encoder_item encoders[VEKML_VPU_PROFILES]; /**< one per profile value, in value order */
    vpu_decoder_item decoders[VEKML_VPU_PROFILES]; /**< one per profile value, in value order */
} Vpu_codec_info_st;

/* ---- The device table --------------------------------------------------------------------------------------- */

/** Capacity of the device table. ::vekml_init fills at most 15 entries, ::vekml_out_of_band_init all 16. */
#define VEKML_MAX_DEVICES 16

/**
 * One GPU. Clients read it through the calls below; its layout is fixed all the same. `mapped_bar0` is the mapped
 * 32 MiB window of BAR0, which is device memory: read it with aligned loads of at most 32 bits, never with memcpy or
 * the like.
 */
typedef struct vekml_device_record {
    char card_path[128];              /**< CARD */
    char hwmon_path[128];             /**< HWMON; empty when there is none */
    char product_name_path[256];      /**< CARD/vek_product_name */
    char dbdf_path[256];              /**< CARD/vek_dbdf */
    char curr_link_speed_path[256];   /**< CARD/device/current_link_speed */
    char curr_link_width_path[256];   /**< CARD/device/current_link_width */
    char max_link_speed_path[256];    /**< CARD/device/max_link_speed */
    char max_link_width_path[256];    /**< CARD/device/max_link_width */
    uint32_t card_index;              /**< card number N, the DRM minor of the primary node */
    uint32_t table_index;             /**< position in the device table */
    char name[64];                    /**< text of CARD/vek_product_name */
    char dbdf[64];                    /**< PCI address, text of CARD/vek_dbdf, for example "0000:03:00.0" */
    char uuid[16];                    /**< HWMON/vek_chip_id as last read by ::vekml_device_get_uuid, 15 characters */
    uint64_t domain;                  /**< PCI domain */
    uint64_t bus;                     /**< PCI bus */
    uint64_t device;                  /**< PCI device (slot) */
    uint64_t function;                /**< PCI function */
    uint64_t bdfid;                   /**< always 0 */
    uint32_t curr_link_speed;         /**< present link speed, leading integer of its node, GT/s */
    uint32_t curr_link_width;         /**< present link width, lanes */
    uint32_t max_link_speed;          /**< highest link speed, leading integer of its node, GT/s */
    uint32_t max_link_width;          /**< highest link width, lanes */
    uint32_t curr_link_generation;    /**< PCIe generation of the present speed: 3 for 8, 4 for 16, 5 for 1, else 0 */
    uint32_t max_link_generation;     /**< PCIe generation of the highest speed, likewise */
    uint64_t device_id;               /**< PCI device id */
    uint64_t vendor_id;               /**< PCI vendor id */
    uint64_t subsystem_device_id;     /**< PCI subsystem device id */
    uint64_t subsystem_vendor_id;     /**< PCI subsystem vendor id */
    uint32_t gpu_clock_mhz;           /**< GPU clock from the firmware block, MHz; 0 when not known */
    char vendor_name[64];             /**< board vendor from the firmware block */
    char vbios_version_text[64];      /**< VBIOS version from the firmware block, "vX.Y.Z\n" in hexadecimal digits */
    char fw_version_text[64];         /**< firmware version from the firmware block, "vX.Y.Z" */
    uint64_t fb_total;                /**< memory size from the firmware block, MiB */
    char model[64];                   /**< model name; empty or "unknown" when not known */
    uint32_t model_device_id;         /**< device id looked up from the model; 65535 when not known */
    uint32_t chip_process;            /**< chip process looked up from the model; 12 when not known */
    uint32_t fw_word_0a0;             /**< fan-support flag of the firmware block */
    uint32_t fw_word_09c;             /**< power-support flag of the firmware block */
    Vpu_codec_info_st vpu_codec_info; /**< codec capabilities once queried (its `valid` is then 1) */
    uint32_t vpu_utlz_status;         /**< result of the first video-engine sample */
    uint64_t last_enc_vcmd_num;       /**< encoder commands executed at the previous sample */
    uint64_t last_dec_vcmd_num;       /**< decoder commands executed at the previous sample */
    uint64_t last_sample_sec;         /**< time of the previous sample, seconds since the epoch */
    uint64_t last_sample_usec;        /**< and its microseconds */
    void *mapped_bar0;                /**< window of BAR0 or null; device memory: aligned loads, 32 bits at most */
    uint32_t bar0_mapped;             /**< 1 once `mapped_bar0` is valid, else 0 */
} vekml_device_record_t;

/** The library's whole state: all zero at load and after ::vekml_shutdown. */
typedef struct vekml_globals {
    vekml_device_record_t devices[VEKML_MAX_DEVICES]; /**< one entry per GPU found, from index 0 without gaps */
    uint32_t count;                                   /**< number of entries in use */
} vekml_globals_t;

/**
 * The one state record, for clients that read the table themselves; nobody but the library writes it. Its name is
 * program-wide: a program or library that has a `globals` of its own, and does not keep it `static`, puts that in the
 * place of this one, for the library too.
 */
VEKML_API extern vekml_globals_t globals;

/** A GPU. Valid from ::vekml_init to ::vekml_shutdown; after that it points at a zeroed record. */
typedef vekml_device_record_t *vekml_device_t;

/* ---- Start and stop ----------------------------------------------------------------------------------------- */

/**
 * Find the GPUs under "/sys/class/drm" and fill the device table from the kernel driver's attributes. Needs no
 * privileges and opens no device file. A second call runs discovery again over the same table.
 *
 * @return ::VEKML_SUCCESS always; ::vekml_device_get_count tells the outcome. "Open failed, there's no such path" or
 *         "Read failed, no file node to read" on standard output when the directory is missing or empty.
 */
VEKML_API vekml_return_t vekml_init(void);

/**
 * As ::vekml_init, for "/sys/class/drm/cardN" alone: the same steps, the video engines among them, and no other card's
 * nodes are touched, so that a card whose driver hangs holds up nobody but its own process. Any N is tried, however
 * many cards there are.
 *
 * @param card_index N
 * @return ::VEKML_SUCCESS always. ::vekml_device_get_count then gives 1, with the GPU at index 0, or 0 when that card
 *         is missing or not a GPU of ours. Prints what ::vekml_init prints.
 * @since 1.1
 */
VEKML_API vekml_return_t vekml_init_card(uint32_t card_index);

/**
 * Unmap every BAR0 window and clear the whole state. Harmless before ::vekml_init.
 *
 * @return ::VEKML_SUCCESS, or ::VEKML_ERROR_NODE_IO when a window cannot be unmapped, with a line on standard error;
 *         the state then stays as it is.
 */
VEKML_API vekml_return_t vekml_shutdown(void);

/**
 * Start without the kernel driver: find the GPUs on the PCI bus and map each one's BAR0 through "/dev/mem". With
 * the driver module loaded this is ::vekml_init. Mapping needs root. Another start without ::vekml_shutdown in between
 * lists the same GPUs again, behind the first.
 *
 * Whether the module is loaded is asked of `lsmod`, by a shell with the caller's PATH: never call this from a
 * set-user-id program.
 *
 * @return ::VEKML_SUCCESS when the driver is loaded and ::vekml_init was run, 1 after an out-of-band start, whatever
 *         became of each GPU. A PCI bus that cannot be listed prints a line, a GPU what
 *         ::vekml_pci_out_of_band_manager prints.
 */
VEKML_API vekml_return_t vekml_out_of_band_init(void);

/**
 * Map one GPU's BAR0 window and take a snapshot of its firmware information block into its device record. A GPU whose
 * memory is switched off is enabled first. ::vekml_shutdown unmaps the window, whether or not the entry is in use.
 *
 * @param gpu_index position in the device table
 * @param dev the GPU as libpciaccess lists it, probed
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NO_PERMISSION without root; ::VEKML_ERROR_NODE_IO when "/dev/mem" cannot be
 *         opened, BAR0 is absent, not page-aligned, not memory or smaller than the window, the mapping fails, or, with
 *         nothing printed, `dev` is null or the index outside the table. Without root and for a BAR0 that is not
 *         page-aligned lines go to standard output, for the others to standard error.
 */
VEKML_API vekml_return_t vekml_pci_out_of_band_manager(uint32_t gpu_index, struct pci_device *dev);

/* ---- Enumeration and handles -------------------------------------------------------------------------------- */

/** PCI address of one GPU. */
typedef struct vekml_pci_info {
    uint64_t domain;   /**< PCI domain */
    uint64_t bus;      /**< PCI bus */
    uint64_t device;   /**< PCI device (slot) */
    uint64_t bdfid;    /**< always 0 */
    uint64_t function; /**< PCI function */
    char busId[64];    /**< the address as text, for example "0000:03:00.0" */
} vekml_pci_info_t;

/**
 * Number of GPUs found.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT when `count` is null.
 */
VEKML_API vekml_return_t vekml_device_get_count(uint32_t *count);

/**
 * Handle of the GPU at a position of the device table.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT when `handle` is null or `index` is not below the count.
 */
VEKML_API vekml_return_t vekml_device_get_handle_by_index(uint32_t index, vekml_device_t *handle);

/**
 * Handle of the GPU at a PCI address. The comparison is numeric, so upper-case digits match too.
 *
 * @param pci_bus_id 12 characters, for example "0000:03:00.0"
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null argument; ::VEKML_ERROR_NO_DATA when no GPU
 *         matches, with a line on standard output.
 */
VEKML_API vekml_return_t vekml_device_get_handle_by_pci_bus_id(vekml_device_t *handle, const char *pci_bus_id);

/**
 * Product name, as CARD/vek_product_name held it at initialisation.
 *
 * @param length capacity of `name`
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INSUFFICIENT_SIZE when the name and its NUL do not fit, nothing is written
 *         then. Pointers are not checked.
 */
VEKML_API vekml_return_t vekml_device_get_name(vekml_device_t handle, char *name, uint32_t length);

/** Card number N, the DRM minor of the primary node. @return ::VEKML_SUCCESS. Pointers are not checked. */
VEKML_API vekml_return_t vekml_device_get_minor_number(vekml_device_t handle, uint32_t *minor);

/**
 * Card number N, as ::vekml_device_get_minor_number.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT when either pointer is null.
 */
VEKML_API vekml_return_t vekml_device_get_card_index_by_handle(vekml_device_t handle, uint32_t *index);

/** PCI address. @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT when either pointer is null. */
VEKML_API vekml_return_t vekml_device_get_pci_info(vekml_device_t handle, vekml_pci_info_t *pci);

/* ---- Identity tables ---------------------------------------------------------------------------------------- */

/** What the library knows of one model beyond what the driver publishes. */
typedef struct vekml_id_model {
    uint32_t device_id;    /**< PCI device id, unique */
    const char *model;     /**< marketing model name, at most 12 characters, unique */
    uint32_t chip_process; /**< chip process, nm */
    uint32_t lower_bound;  /**< lowest graphics clock that may be set, MHz */
    uint32_t upper_bound;  /**< highest graphics clock that may be set, MHz */
    uint32_t gddr_width;   /**< memory bus width, bits */
    const char *decoder;   /**< video decoding capability, for example "4K60" */
    const char *encoder;   /**< video encoding capability, for example "1080p60" */
} vekml_id_model_t;

/** One board. */
typedef struct vekml_board {
    const char *name;             /**< board name */
    const char *part_number;      /**< board part number */
    const char *config;           /**< core and memory layout, clocks, form factor */
    uint32_t vendor_id;           /**< PCI vendor id */
    uint32_t device_id;           /**< PCI device id; also a model's */
    uint32_t subsystem_vendor_id; /**< PCI subsystem vendor id, or 0 */
    uint32_t subsystem_device_id; /**< PCI subsystem device id, or 0 */
} vekml_board_t;

/** Number of chip types, models and boards in the tables. */
#define VEKML_ASIC_TYPES 3
#define VEKML_MODELS 53
#define VEKML_BOARDS 11

/** Chip type names, by the number that the driver gives. */
VEKML_API extern const char *const asic_types[VEKML_ASIC_TYPES];
/** Every model. */
VEKML_API extern const vekml_id_model_t idModelArray[VEKML_MODELS];
/** Every board. */
VEKML_API extern const vekml_board_t talonProductArr[VEKML_BOARDS];

/**
 * Model name of a device id, else "unknown". At most `size` - 1 characters are copied, and no terminator is written at
 * `size` - 1: hand in a zeroed buffer.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT when the id is known and `size` is below 8, nothing is
 *         written then; ::VEKML_ERROR_NOT_FOUND for an unknown id.
 */
VEKML_API vekml_return_t device_id_to_model(uint32_t device_id, char *model, uint32_t size);

/**
 * As ::device_id_to_model, for a buffer of any size.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NOT_FOUND for an unknown id.
 */
VEKML_API vekml_return_t device_id_to_model_with_size(uint32_t device_id, char *model, uint32_t size);

/**
 * Device id and chip process of a model name, compared exactly.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null argument; ::VEKML_ERROR_NOT_FOUND for an unknown
 *         name, the outputs are left alone then.
 */
VEKML_API vekml_return_t model_to_device_id_and_chip_process(const char *model, uint32_t *device_id,
                                                             uint32_t *chip_process);

/**
 * Chip process of a device id, nm.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null output; ::VEKML_ERROR_NOT_FOUND for an unknown id.
 */
VEKML_API vekml_return_t device_id_to_chip_process(uint32_t device_id, uint32_t *chip_process);

/** Whether a device id is a model's. @return ::VEKML_SUCCESS when it is, else ::VEKML_ERROR_NOT_FOUND. */
VEKML_API vekml_return_t is_right_device_id(uint32_t device_id);

/**
 * Memory bus width of a device id, bits.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NOT_FOUND for an unknown id, with 0 stored.
 */
VEKML_API vekml_return_t vekml_device_id_to_gddr_width(uint32_t device_id, uint32_t *gddr_width);

/**
 * Graphics clock bounds of a device id, MHz.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NOT_FOUND for an unknown id, with 50 and 1000 stored: test the result, not the
 *         values.
 */
VEKML_API vekml_return_t vekml_device_id_to_gfx_bound(uint32_t device_id, uint32_t *lower_bound, uint32_t *upper_bound);

/**
 * Video capability texts of a device id. Each buffer must hold at least 9 bytes.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NOT_FOUND for an unknown id, with "unknown" in both.
 */
VEKML_API vekml_return_t device_id_to_video_decoder_encoder(uint32_t device_id, char *decoder, char *encoder);

/**
 * Cut the model name out of the text of HWMON/vek_device_model: what stands before its last blank, or "unknown"
 * for a text without the maker's word or without a blank. Copies at most `size` - 1 characters and terminates.
 */
VEKML_API void parse_device_model(const char *text, char *model, uint32_t size);

/* ---- Static information ------------------------------------------------------------------------------------- */

/** The driver's static record, as its request delivers it and as CARD/device/gpu_static_info lists it. */
typedef struct vekml_gpu_static_info {
    uint32_t asic_id;            /**< chip type, an index of ::asic_types */
    uint32_t core_num;           /**< number of GPU cores */
    uint32_t gddr_count;         /**< number of memory devices */
    uint32_t gddr_size;          /**< memory size */
    uint64_t gddr_speed;         /**< memory speed */
    uint32_t gpu_primary_id;     /**< primary id */
    uint32_t vendor;             /**< board vendor: 0 the maker, 1 "BITLAND", 2 "GOODTIMES", else "OTHERS" */
    uint32_t chip_id;            /**< chip identifier */
    uint32_t device_id;          /**< PCI device id of the board */
    uint32_t card_type;          /**< 0 display card, 1 compute card */
    char static_text[32];        /**< driver text, NUL padded; delivered by the request only */
    uint32_t fw_version;         /**< firmware version: major in bits 24-31, minor in 16-23, patch in 0-15 */
    uint32_t vbios_version;      /**< VBIOS version, packed likewise */
    uint32_t fan_ctrl_mode;      /**< fan control mode */
    uint32_t support_fan_info;   /**< 1 when fan information is available */
    uint32_t support_temp_info;  /**< 1 when temperature information is available */
    uint32_t support_power_info; /**< 1 when power information is available */
    uint32_t reserved;           /**< not used */
    uint64_t gpu_default_freq;   /**< default GPU clock */
    uint32_t gddr_vendor;        /**< memory maker: 0 "Samsung", 1 "Hynix", 2 "Micron" */
    uint32_t gddr_package_model; /**< memory package model code */
} vekml_gpu_static_info_t;

/**
 * Read CARD/device/gpu_static_info. Values that the text does not supply keep what the record held;
 * `static_text` is not part of the node.
 *
 * @param card_path CARD
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NOT_FOUND when the node cannot be opened.
 */
VEKML_API vekml_return_t vekml_read_static_info_from_node(const char *card_path, vekml_gpu_static_info_t *info);

/**
 * Memory size from HWMON/vek_gddr_size.
 *
 * @return ::VEKML_SUCCESS, with 0 stored when unreadable; ::VEKML_ERROR_NODE_IO when the node is absent.
 */
VEKML_API vekml_return_t vekml_device_get_gddr_size(vekml_device_t device, uint32_t *size);

/**
 * Memory speed from HWMON/vek_gddr_phys_speed, decimal or 0x-prefixed.
 *
 * @return ::VEKML_SUCCESS, with 0 stored when unreadable; ::VEKML_ERROR_NODE_IO when the node is absent.
 */
VEKML_API vekml_return_t vekml_device_get_gddr_speed(vekml_device_t device, uint64_t *speed);

/** Number of memory devices from HWMON/vek_gddr_count. @return ::VEKML_SUCCESS, with 0 stored when unreadable. */
VEKML_API vekml_return_t vekml_device_get_gddr_count(vekml_device_t device, uint32_t *count);

/**
 * Board vendor from HWMON/vek_vendor; `vendor` holds 64 bytes.
 *
 * @return ::VEKML_SUCCESS, with an empty text when unreadable.
 */
VEKML_API vekml_return_t vekml_device_get_vendor(vekml_device_t device, char *vendor);

/**
 * Firmware version from HWMON/vek_fw_ver; `fw_ver` holds 20 bytes.
 *
 * @return ::VEKML_SUCCESS, empty text when unreadable.
 */
VEKML_API vekml_return_t vekml_device_get_fw_ver(vekml_device_t device, char *fw_ver);

/**
 * Serial from HWMON/vek_chip_id; `serial` holds 20 bytes.
 *
 * @return ::VEKML_SUCCESS, with an empty text when unreadable.
 */
VEKML_API vekml_return_t vekml_device_get_serial(vekml_device_t device, char *serial);

/**
 * VBIOS version from HWMON/vek_vbios; `vbios` holds 50 bytes.
 *
 * @return ::VEKML_SUCCESS, with an empty text when unreadable.
 */
VEKML_API vekml_return_t vekml_device_get_vbios_version(vekml_device_t device, char *vbios);

/**
 * Product name from vek_product_name in a directory; `name` holds 16 bytes.
 *
 * @param dir a directory, usually CARD
 * @return ::VEKML_SUCCESS, with an empty text when unreadable.
 */
VEKML_API vekml_return_t vekml_device_get_product_name(const char *dir, char *name);

/**
 * UUID from HWMON/vek_chip_id, also kept in the device record; `uuid` holds 20 bytes.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null argument; ::VEKML_ERROR_NOT_FOUND when the node is
 *         unreadable.
 */
VEKML_API vekml_return_t vekml_device_get_uuid(vekml_device_t device, char *uuid);

/**
 * Chip type number from the last word of HWMON/vek_device_model; 2 for an empty text. Compare it with
 * ::VEKML_ASIC_TYPES before it serves as an index of ::asic_types: the driver's number is not checked.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NODE_IO when the node is unreadable, nothing is written then.
 */
VEKML_API vekml_return_t vekml_device_get_asic_type(vekml_device_t device, uint32_t *arch_type);

/**
 * Memory type, the text "GDDR6". It is not read from the device.
 *
 * @param size capacity of `gddr_type`; the text takes 6 bytes, and a size of 5 is let pass
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null argument; ::VEKML_ERROR_INSUFFICIENT_SIZE when
 *         `size` is below 5.
 */
VEKML_API vekml_return_t vekml_device_get_gddr_type(vekml_device_t device, char *gddr_type, uint32_t size);

/**
 * Memory maker from CARD/device/gpu_static_info: "Samsung", "Hynix", "Micron" or "unknown"; `vendor` holds 8 bytes.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null argument; ::VEKML_ERROR_NOT_FOUND when the node
 *         cannot be opened, with "unknown" stored.
 */
VEKML_API vekml_return_t vekml_device_get_gddr_vendor(vekml_device_t device, char *vendor);

/** PCI device id. @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null argument. */
VEKML_API vekml_return_t vekml_device_get_device_id(vekml_device_t device, uint32_t *device_id);

/**
 * Memory bus width from the identity tables, bits.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null argument; ::VEKML_ERROR_NOT_FOUND for an unknown
 *         board, with 0 stored.
 */
VEKML_API vekml_return_t vekml_device_get_gddr_width(vekml_device_t device, uint32_t *width);

/**
 * Highest graphics clock from the identity tables, MHz.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null argument; ::VEKML_ERROR_NOT_FOUND for an unknown
 *         board, with 0 stored and a line on standard output.
 */
VEKML_API vekml_return_t vekml_device_get_gfx_clock_max(vekml_device_t device, uint32_t *gfx_max);

/**
 * Number of GPU cores from CARD/device/gpu_static_info.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null argument; ::VEKML_ERROR_NOT_FOUND when the node
 *         cannot be opened, with 0 stored.
 */
VEKML_API vekml_return_t vekml_device_get_num_gpu_cores(vekml_device_t device, uint32_t *cores);

/**
 * Texture fill rate, cores x 32 x highest graphics clock, gigatexels per second.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null argument; ::VEKML_ERROR_NOT_FOUND when the core
 *         count or the clock is not to be had, with 0.0 stored.
 */
VEKML_API vekml_return_t vekml_device_get_texture_fill_rate(vekml_device_t device, float *rate);

/** Pixel fill rate, cores x 16 x highest graphics clock, gigapixels per second. Results as the texture fill rate. */
VEKML_API vekml_return_t vekml_device_get_pixel_fill_rate(vekml_device_t device, float *rate);

/**
 * Video capability texts from the identity tables; each buffer holds at least 9 bytes.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null argument; ::VEKML_ERROR_NODE_IO for an unknown
 *         board, with "unknown" in both.
 */
VEKML_API vekml_return_t vekml_device_get_video_decoder_encoder(vekml_device_t device, char *decoder, char *encoder);

/**
 * Chip process of the model, nm; from the model found at initialisation, else from HWMON/vek_device_model.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null argument; ::VEKML_ERROR_NOT_FOUND when the node is
 *         unreadable or the model unknown.
 */
VEKML_API vekml_return_t vekml_device_get_chip_process(vekml_device_t device, uint32_t *chip_process);

/**
 * Model name: of the model found at initialisation, else of the PCI device id, else "unknown". At most `size` - 1
 * characters are copied, without a terminator at `size` - 1: hand in a zeroed buffer of 8 bytes or more, as nothing is
 * copied into a smaller one when the PCI device id tells.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null argument.
 */
VEKML_API vekml_return_t vekml_device_get_device_model(vekml_device_t device, char *model, uint32_t size);

/**
 * Primary id from HWMON/vek_gpu_primary_id; `dst` holds 20 bytes.
 *
 * @return ::VEKML_SUCCESS, empty text when unreadable.
 */
VEKML_API vekml_return_t vekml_device_get_primary_id(vekml_device_t device, char *dst);

/**
 * Primary core id from HWMON/vek_gpu_primary_core_id; `dst` holds 20 bytes.
 *
 * @return ::VEKML_SUCCESS, empty when unreadable.
 */
VEKML_API vekml_return_t vekml_device_get_primary_core_id(vekml_device_t device, char *dst);

/* ---- Driver versions ---------------------------------------------------------------------------------------- */

/** Versions of the software stack. */
typedef struct vekml_driver_version {
    char ddk[20]; /**< driver development kit, "X.Y.Z" */
    char kmd[20]; /**< kernel-mode driver, "X.Y" */
    char umd[20]; /**< user-mode driver, "X.Y" */
} vekml_driver_version_t;

/**
 * Versions from CARD/version or, where that node does not exist, from the first MiB of the first GPU's debugfs dump.
 * Read from the dump, `kmd` holds the dump's "UM info" and `umd` its "KM info".
 *
 * @return ::VEKML_SUCCESS, with "N/A" for what the dump lacks; ::VEKML_ERROR_NO_PERMISSION when the dump is needed and
 *         the caller is not root, with "N/A" in all three; ::VEKML_ERROR_NODE_IO when the dump cannot be opened or
 *         read, the record is left alone then.
 */
VEKML_API vekml_return_t vekml_device_get_driver_version(vekml_device_t device, vekml_driver_version_t *version);

/**
 * Version of the installed driver package, from the Debian package list; without the packaging revision. The list is
 * asked of `dpkg`, by a shell with the caller's PATH: never call this from a set-user-id program.
 *
 * @param version a buffer of at least `size` + 1 bytes; left alone when no package is installed or its version is
 *                longer than `size`
 * @param size length of the longest text to store, its terminator not counted: a version of exactly this length is
 *             stored with its terminator in the byte behind
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null buffer.
 */
VEKML_API vekml_return_t vekml_device_get_driver_release_version(char *version, uint32_t size);

/* ---- PCIe, memory errors, display --------------------------------------------------------------------------- */

/** The driver's PCIe event word. */
typedef struct vekml_pcie_event {
    uint32_t event;   /**< the raw word of HWMON/vek_pcie_event */
    uint8_t flags[6]; /**< flags[i] is 1 when bit i of the word is set */
} vekml_pcie_event_t;

/** CRC error counters of the memory interface, index = memory device 0 to 3. */
typedef struct vekml_gddr_crc {
    uint32_t crc_support;            /**< 1 when their node could be opened */
    uint32_t crc_write_cnt[4];       /**< write errors */
    uint32_t crc_read_cnt[4];        /**< read errors */
    uint32_t crc_write_retry_cnt[4]; /**< write retries */
    uint32_t crc_read_retry_cnt[4];  /**< read retries */
} vekml_gddr_crc_t;

/**
 * Present link speed, GT/s, as initialisation found it.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT when `handle` is null.
 */
VEKML_API vekml_return_t vekml_device_get_pcie_speed(vekml_device_t handle, uint32_t *speed);

/**
 * Present link width, lanes, as initialisation found it.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT when `handle` is null.
 */
VEKML_API vekml_return_t vekml_device_get_curr_pcie_link_width(vekml_device_t handle, uint32_t *width);

/** Highest link speed, GT/s. @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT when `handle` is null. */
VEKML_API vekml_return_t vekml_device_get_pcie_link_max_speed(vekml_device_t handle, uint32_t *speed);

/** Highest link width, lanes. @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT when `handle` is null. */
VEKML_API vekml_return_t vekml_device_get_max_pcie_link_width(vekml_device_t handle, uint32_t *width);

/**
 * PCIe generation of the present speed: 3 for 8 GT/s, 4 for 16, 5 for 1, else 0.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT without a handle.
 */
VEKML_API vekml_return_t vekml_device_get_curr_pcie_link_generation(vekml_device_t handle, uint32_t *generation);

/**
 * PCIe generation of the highest link speed, likewise.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT when `handle` is null.
 */
VEKML_API vekml_return_t vekml_device_get_max_pcie_link_generation(vekml_device_t handle, uint32_t *generation);

/**
 * Present link speed text from CARD/device/current_link_speed, for example "16.0 GT/s PCIe"; `dst` holds 20 bytes.
 * It is the link's speed, not a measured throughput.
 *
 * @return ::VEKML_SUCCESS, with an empty text when unreadable.
 */
VEKML_API vekml_return_t vekml_device_get_pcie_throughput(vekml_device_t device, char *dst);

/** PCIe event word from HWMON/vek_pcie_event. @return ::VEKML_SUCCESS, with 0 stored when unreadable. */
VEKML_API vekml_return_t vekml_device_get_pcie_event(vekml_device_t device, vekml_pcie_event_t *event);

/**
 * Memory-BAR type from HWMON/vek_pcie_mmbar_type; `type` holds 20 bytes.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NODE_IO when unreadable.
 */
VEKML_API vekml_return_t vekml_device_get_pcie_mmbar_type(vekml_device_t device, char *type);

/**
 * First digit of the total of non-fatal errors in CARD/device/aer_dev_nonfatal, stored as one character without a
 * terminator.
 *
 * @param card_path CARD
 * @param count 4 bytes
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NODE_IO when the file is unreadable, with "N/A" stored, or lacks its total.
 */
VEKML_API vekml_return_t vekml_device_get_pcie_err_nonfatal(const char *card_path, char *count);

/** Fatal errors, from CARD/device/aer_dev_fatal; otherwise as ::vekml_device_get_pcie_err_nonfatal. */
VEKML_API vekml_return_t vekml_device_get_pcie_err_fatal(const char *card_path, char *count);

/** Corrected errors, from CARD/device/aer_dev_correctable; otherwise as ::vekml_device_get_pcie_err_nonfatal. */
VEKML_API vekml_return_t vekml_device_get_pcie_err_corr(const char *card_path, char *count);

/**
 * Memory CRC counters from CARD/device/gddr_crc. Counters of a line that is missing keep what the record held.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null argument; ::VEKML_ERROR_NOT_FOUND when the node
 *         cannot be opened.
 */
VEKML_API vekml_return_t vekml_device_get_gddr_crc(vekml_device_t device, vekml_gddr_crc_t *crc);

/**
 * Whether a monitor is connected to the HDMI or DisplayPort connector: 1 or 0. The connectors are those that CARD
 * lists under the names of card 0.
 *
 * @return ::VEKML_SUCCESS; an unreadable connector counts as not connected.
 */
VEKML_API vekml_return_t vekml_device_get_display_status(vekml_device_t device, uint32_t *connected);

/* ---- Utilisation, memory, processes ------------------------------------------------------------------------- */

/** How busy a GPU is, whole percentages. */
typedef struct vekml_util_info {
    uint32_t gpu;  /**< the whole GPU */
    uint32_t tdm;  /**< data master 1 (TDM) */
    uint32_t geom; /**< data master 2 (GEOM) */
    uint32_t thrd; /**< data master 3 (3D) */
    uint32_t cdm;  /**< data master 4 (CDM) */
} vekml_util_info_t;

/** The driver's busy counters over its own measuring period; only their ratios carry meaning. */
typedef struct vekml_util_counters {
    uint64_t bValid;                /**< 1 when the counters are valid */
    uint64_t GpuStatActive;         /**< whole GPU, active time */
    uint64_t GpuStatBlocked;        /**< whole GPU, blocked time */
    uint64_t GpuStatIdle;           /**< whole GPU, idle time */
    uint64_t GpuStatCumulative;     /**< whole GPU, the measuring period */
    uint64_t DMOSStatActive[9];     /**< data masters 0 to 8, active time */
    uint64_t DMOSStatBlocked[9];    /**< data masters 0 to 8, blocked time */
    uint64_t DMOSStatIdle[9];       /**< data masters 0 to 8, idle time */
    uint64_t DMOSStatCumulative[9]; /**< data masters 0 to 8, the measuring period */
} vekml_util_counters_t;

/** Memory of one GPU, in the driver's unit. */
typedef struct vekml_mem_info {
    uint64_t fb_free;   /**< local memory, free */
    uint64_t fb_total;  /**< local memory, total */
    uint64_t fb_used;   /**< local memory, total less free */
    uint64_t sys_free;  /**< system memory that the driver manages, free */
    uint64_t sys_total; /**< system memory that the driver manages, total */
    uint64_t sys_used;  /**< system memory, total less free */
} vekml_mem_info_t;

/** Number of processes a list holds, and size of a process name. */
#define VEKML_PROCESSES 5
#define VEKML_PROCESS_NAME 30

/** Memory of one process, in the driver's unit. */
typedef struct vekml_process {
    uint64_t pid;      /**< process id */
    int64_t mem_lma;   /**< local GPU memory ("MemoryUsageAllocGPUMemLMA") */
    int64_t mem_total; /**< all memory ("MemoryUsageTotal") */
} vekml_process_t;

/** The processes that hold most local memory, largest first. */
typedef struct vekml_process_info {
    uint64_t process_num;                                   /**< number of entries filled, 0 to 5 */
    vekml_process_t process[VEKML_PROCESSES];               /**< the processes */
    char process_name[VEKML_PROCESSES][VEKML_PROCESS_NAME]; /**< their names, same order */
} vekml_process_info_t;

/** Number of labels of the driver's per-process statistics. */
#define VEKML_PROCESS_STATISTICS 23

/** Labels of the driver's per-process statistics: "PID", then one for each counter; under two names. */
VEKML_API extern const char *const meminfo[VEKML_PROCESS_STATISTICS];
VEKML_API extern const char *const process_mem_info[VEKML_PROCESS_STATISTICS];

/**
 * Utilisation, from the counters of CARD/device/gpu_util_info, else of the driver's request, else from the
 * debugfs file "/sys/kernel/debug/vekgpu/status". Pointers are not checked.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NO_PERMISSION when only debugfs is left and the caller is not root;
 *         ::VEKML_ERROR_NODE_IO when that file cannot be opened or read; ::VEKML_ERROR_NOT_FOUND when it lacks the
 *         percentages. All fields are 0 after a failure.
 */
VEKML_API vekml_return_t vekml_device_get_util_info(vekml_device_t device, vekml_util_info_t *util);

/**
 * Memory, from CARD/device/gpu_mem_util_info, else from the first MiB of the GPU's debugfs dump. Pointers are not
 * checked. Numbers that a short node lacks keep what the record held.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NO_PERMISSION when debugfs is needed and the caller is not root, with the
 *         record zeroed; ::VEKML_ERROR_NODE_IO when the dump cannot be opened or read, the record is left alone then.
 */
VEKML_API vekml_return_t vekml_device_get_mem_info(vekml_device_t device, vekml_mem_info_t *memory);

/**
 * The processes that hold local memory, from CARD/device/gpu_mem_util_info, else from the driver's request; names
 * from "/proc/PID/status", whose slot stays as it was when that file tells none. Pointers are not checked.
 *
 * @return ::VEKML_SUCCESS, also when there is none; ::VEKML_ERROR_NODE_IO when the card node or a process's status file
 *         cannot be opened, or the request fails.
 */
VEKML_API vekml_return_t vekml_device_get_process_info(vekml_device_t device, vekml_process_info_t *info);

/* ---- The whole record in one call --------------------------------------------------------------------------- */

/**
 * Everything about one GPU. Keep one record per GPU, zeroed at first, and hand it to ::vekml_device_query_two_parts
 * once per refresh. Fields that a path does not write stay as they were. Texts that ::vekml_device_query takes from
 * nodes are cut to their fields, and empty when unreadable.
 */
typedef struct vekml_device_query_record {
    uint32_t display_status; /**< 1 when a monitor is connected (::vekml_device_get_display_status) */
    uint32_t clock[5]; /**< memory, graphics, ACPU, CMCU, NDF clock, MHz; third and fifth on the fallback path only */
    char name[64];     /**< product name; out of band the board vendor */
    char vendor[20];   /**< board vendor */
    char uuid[10];     /**< chip id, hexadecimal digits; ::vekml_device_query: HWMON/vek_chip_id */
    char vbios_version[20];   /**< "vX.Y.Z" or "N/A"; ::vekml_device_query: HWMON/vek_vbios; out of band "vX.Y.Z\n" */
    char serial[10];          /**< HWMON/vek_chip_id (::vekml_device_query only) */
    uint32_t minor_number;    /**< card number */
    uint32_t fan_speed;       /**< HWMON/fan1_input */
    int32_t fan_ctrl_mode;    /**< fan control mode */
    char primary_id[10];      /**< primary id; ::vekml_device_query: HWMON/vek_gpu_primary_id */
    char primary_core_id[10]; /**< HWMON/vek_gpu_primary_core_id */
    char asic_type[20];       /**< chip type; empty when not known */
    uint32_t core;            /**< number of GPU cores */
    char pcie_mmbar_type[20]; /**< HWMON/vek_pcie_mmbar_type */
    char card_type[20];       /**< "Display Card" or "Compute Card"; empty for another kind */
    char fw_ver[10];          /**< "vX.Y.Z" or "N/A"; ::vekml_device_query: HWMON/vek_fw_ver */
    uint32_t gddr_count;      /**< number of memory devices */
    uint64_t gddr_speed;      /**< memory speed */
    uint32_t gddr_size;       /**< memory size */
    uint32_t gddr_width;      /**< memory bus width, bits */
    char gddr_type[10];       /**< "GDDR6" */
    uint32_t gddr_package_model;              /**< memory package model code; from the node only */
    char pcie_err_corr[10];                   /**< first digit of the corrected-error total, "N/A" or empty */
    char pcie_err_fatal[10];                  /**< likewise of the fatal errors */
    char pcie_err_nonfatal[10];               /**< likewise of the non-fatal errors */
    uint64_t temperature[3];                  /**< control mode, current, highest (::vekml_device_get_temper_info) */
    uint32_t curr_pcie_link_width;            /**< lanes */
    uint32_t max_pcie_link_width;             /**< lanes */
    uint32_t pcie_speed;                      /**< GT/s */
    uint32_t pcie_link_max_speed;             /**< GT/s */
    uint32_t curr_pcie_link_generation;       /**< as the device record has it */
    uint32_t max_pcie_link_generation;        /**< likewise */
    uint32_t pci_ids[4];                      /**< device, vendor, subsystem device, subsystem vendor id */
    uint32_t pcie_event[7];                   /**< event word, then its six flags */
    uint64_t pci_info[4];                     /**< domain, bus, device, and 0; out of band the fourth is the function */
    char pci_bus_id[64];                      /**< PCI address */
    vekml_mem_info_t memory;                  /**< memory; out of band the total is in MiB */
    vekml_util_counters_t util_state;         /**< busy counters (fallback path and ::vekml_device_query only) */
    uint64_t pronum;                          /**< number of processes, 0 to 5 */
    vekml_process_t process[VEKML_PROCESSES]; /**< the processes */
    char process_name[VEKML_PROCESSES][VEKML_PROCESS_NAME]; /**< their names */
    uint64_t device_id;                                     /**< PCI device id of the board */
    uint32_t power_state;                                   /**< HWMON/in0_input, the voltage */
    int32_t support_fan_info;                               /**< above 0 when fan information is available */
    float power[3];                  /**< current, average power, total power (::vekml_device_get_power_info) */
    char chip_model[64];             /**< model name */
    uint32_t support_power_info;     /**< above 0 when power information is available */
    int32_t support_temp_info;       /**< above 0 when temperature information is available */
    char static_text[32];            /**< driver text (request only) */
    uint64_t gpu_default_freq;       /**< default GPU clock */
    vekml_util_info_t util;          /**< utilisation, percent */
    uint32_t crc_support;            /**< 1 once the memory CRC counters could be read */
    uint32_t crc_write_cnt[4];       /**< CRC write errors per memory device */
    uint32_t crc_read_cnt[4];        /**< CRC read errors */
    uint32_t crc_write_retry_cnt[4]; /**< CRC write retries */
    uint32_t crc_read_retry_cnt[4];  /**< CRC read retries */
    uint32_t static_valid;           /**< 1 once the static fields have been filled */
} vekml_device_query_t;

/**
 * Fill the static fields of the record: from CARD/device/gpu_static_info, else from the first, else from the
 * second static request on "/dev/dri/cardN".
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NO_PERMISSION when all three fail, nothing is written then.
 */
VEKML_API vekml_return_t vekml_device_query_static_info(vekml_device_t device, vekml_device_query_t *query);

/**
 * Fill the live fields of the record. When an essential getter fails, the fallback fills the record again, with
 * `util_state` and the processes from the driver's requests. Failures of utilisation and, though they are passed
 * over, of clocks and processes print a line.
 *
 * @return ::VEKML_SUCCESS; otherwise the failing step of the fallback: utilisation, the card node, a request, a
 *         process's status file, or the memory CRC counters.
 */
VEKML_API vekml_return_t vekml_device_query_dynamic_info(vekml_device_t device, vekml_device_query_t *query);

/**
 * Fill static and live fields with every single getter, whatever each returns; `util_state` and the processes from
 * the driver's requests. Does not write `vendor`, `fan_ctrl_mode`, `card_type`, `gddr_width`, `gddr_type`,
 * `gddr_package_model`, `device_id`, `chip_model`, `support_temp_info`, `static_text`, `gpu_default_freq`,
 * `static_valid` and the third and fifth `clock`.
 *
 * @return ::VEKML_SUCCESS; otherwise the failure of utilisation, of the card node, of a request, of a process's status
 *         file or of the memory CRC counters, with the record partly filled.
 */
VEKML_API vekml_return_t vekml_device_query(vekml_device_t device, vekml_device_query_t *query);

/**
 * One refresh: the static query when `static_valid` is not 1, then the dynamic query. When the static query fails,
 * ::vekml_device_query fills the record instead.
 *
 * @return the dynamic query's result, or that of ::vekml_device_query.
 */
VEKML_API vekml_return_t vekml_device_query_two_parts(vekml_device_t device, vekml_device_query_t *query);

/* ---- Thermal limits and DVFS -------------------------------------------------------------------------------- */

/** Selects a thermal limit. */
typedef uint32_t thm_type;
enum {
    temp_slowdown_type = 0,       /**< HWMON/vek_slowdown_temp */
    temp_shutdown_type = 1,       /**< HWMON/vek_shutdown_temp */
    enable_thm_slowdown_type = 2, /**< HWMON/vek_enable_thm_slowdown */
    enable_thm_shutdown_type = 3  /**< HWMON/vek_enable_thm_shutdown */
};

/** New thermal limits as terminated decimal texts; the selected one goes to its node unchanged. */
typedef struct thm_set {
    char temp_slowdown[5];       /**< slowdown temperature */
    char temp_shutdown[5];       /**< shutdown temperature */
    char enable_thm_slowdown[5]; /**< switch of the slowdown protection */
    char enable_thm_shutdown[5]; /**< switch of the shutdown protection */
} thm_set;

/** Thermal limits as the driver prints them. */
typedef struct thermal {
    int32_t vek_temp_slowdown;       /**< slowdown temperature */
    int32_t vek_temp_shutdown;       /**< shutdown temperature */
    int32_t vek_enable_thm_slowdown; /**< switch of the slowdown protection */
    int32_t vek_enable_thm_shutdown; /**< switch of the shutdown protection */
} thermal;

/** DVFS switch. */
typedef struct dvfs_t {
    int32_t vek_enable_dvfs; /**< CARD/vek_enable_dvfs */
} dvfs_t;

/**
 * Set one thermal limit; blocks for 1 s after the write. Pointers are not checked, nor is the value.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NO_PERMISSION without root; ::VEKML_ERROR_NODE_IO when the write fails or the
 *         type is unknown. Failures print a line, and so does the success of ::enable_thm_slowdown_type.
 */
VEKML_API vekml_return_t vekml_device_set_thermal_info(vekml_device_t handle, thm_set *set, thm_type type);

/**
 * Read one thermal limit into its field.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NOT_FOUND when the node is unreadable, with 0 stored and a line printed;
 *         ::VEKML_ERROR_NODE_IO when the type is unknown, with a line printed.
 */
VEKML_API vekml_return_t vekml_device_get_thermal(vekml_device_t handle, thermal *out, thm_type type);

/**
 * Read both temperatures and the shutdown protection; `vek_enable_thm_slowdown` is left alone.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NOT_FOUND when any node is unreadable, with 0 stored for it and a line
 *         printed.
 */
VEKML_API vekml_return_t vekml_device_get_thermal_info(vekml_device_t handle, thermal *out);

/**
 * Write a text to CARD/vek_enable_dvfs; blocks for 1 s after the write. The text is not checked.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NO_PERMISSION without root; ::VEKML_ERROR_NODE_IO when the write fails.
 *         Failures print a line.
 */
VEKML_API vekml_return_t vekml_device_set_dvfs_enable(vekml_device_t handle, const char *text);

/**
 * Read the DVFS switch.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NOT_FOUND when the node is unreadable, with 0 stored.
 */
VEKML_API vekml_return_t vekml_device_get_dvfs_info(vekml_device_t handle, dvfs_t *out);

/* ---- Temperatures ------------------------------------------------------------------------------------------- */

/** Selects a temperature limit. */
typedef uint32_t tem_type;
enum {
    crtl_mode_type = 0,  /**< HWMON/temp1_ctrl_mode */
    temper_min_type = 1, /**< HWMON/temp1_min */
    temper_max_type = 2, /**< HWMON/temp1_max */
    temper_crit_type = 3 /**< HWMON/temp1_crit */
};

/** Temperatures and limits as the driver prints them. */
typedef struct temper_info {
    int32_t ctrl_mode;    /**< HWMON/temp1_ctrl_mode */
    int32_t temp_input;   /**< present temperature, HWMON/temp1_input */
    int32_t temp_highest; /**< highest temperature seen, HWMON/temp1_highest */
    int32_t temp_min;     /**< HWMON/temp1_min */
    int32_t temp_max;     /**< HWMON/temp1_max */
    int32_t temp_crit;    /**< HWMON/temp1_crit */
    int32_t gddr_temp;    /**< memory temperature, HWMON/vek_gddr_temp */
} temper_info;

/** New temperature limits as terminated decimal texts; the selected one goes to its node unchanged. */
typedef struct temper_set {
    char ctrl_mode[5]; /**< control mode */
    char temp_min[5];  /**< lower limit */
    char temp_max[5];  /**< upper limit */
    char temp_crit[5]; /**< critical limit */
} temper_set;

/**
 * Read one limit or the control mode into its field.
 *
 * @return ::VEKML_SUCCESS, with 0 stored when unreadable; ::VEKML_ERROR_NODE_IO when the type is unknown, with a line
 *         printed.
 */
VEKML_API vekml_return_t vekml_device_get_temper(vekml_device_t handle, temper_info *info, tem_type type);

/**
 * Read all seven values.
 *
 * @return ::VEKML_SUCCESS; a node that cannot be read repeats the value read before it, in the order input, mode,
 *         highest, min, max, crit, memory; an unreadable first node gives 0.
 */
VEKML_API vekml_return_t vekml_device_get_temper_info(vekml_device_t handle, temper_info *info);

/**
 * Set one limit or the control mode. A limit blocks for 7 s: 1 s after its write, at which a write that failed ends
 * the call, and 3 s after each of the two writes that switch the control mode off and on again. Neither the pointers
 * nor the value are checked.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NO_PERMISSION without root; ::VEKML_ERROR_NODE_IO when the limit's write
 *         fails, the type is unknown or, after a minimum, a switch of the control mode fails. A control mode always
 *         gives ::VEKML_SUCCESS. Failures print a line, but for that of a control mode.
 */
VEKML_API vekml_return_t vekml_device_set_temper_info(vekml_device_t handle, temper_set *set, tem_type type);

/* ---- Fan ---------------------------------------------------------------------------------------------------- */

/**
 * Control mode from HWMON/fan1_ctrl_mode; 0 is firmware control.
 *
 * @return ::VEKML_SUCCESS, with 0 stored when unreadable.
 */
VEKML_API vekml_return_t vekml_device_get_fan_ctrl_mode(vekml_device_t handle, uint32_t *mode);

/** PWM value from HWMON/pwm1. @return ::VEKML_SUCCESS, with 0 stored when unreadable. */
VEKML_API vekml_return_t vekml_device_get_fan_pwm(vekml_device_t handle, uint32_t *pwm);

/** Lowest PWM value from HWMON/pwm1_min. @return ::VEKML_SUCCESS, with 0 stored when unreadable. */
VEKML_API vekml_return_t vekml_device_get_pwm_min(vekml_device_t handle, uint32_t *pwm);

/** Highest PWM value from HWMON/pwm1_max. @return ::VEKML_SUCCESS, with 0 stored when unreadable. */
VEKML_API vekml_return_t vekml_device_get_pwm_max(vekml_device_t handle, uint32_t *pwm);

/** Fan speed from HWMON/fan1_input. @return ::VEKML_SUCCESS, with 0 stored when unreadable. */
VEKML_API vekml_return_t vekml_device_get_fan_speed(vekml_device_t handle, uint32_t *speed);

/** Fan speed bounds from HWMON/fan1_min and HWMON/fan1_max. @return ::VEKML_SUCCESS, with 0 stored when unreadable. */
VEKML_API vekml_return_t vekml_device_get_min_max_fan_speed(vekml_device_t handle, uint32_t *min, uint32_t *max);

/**
 * Whether the board has a controllable fan, from HWMON/vek_support_fan_info: 1 or 0.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT when the handle or `support` is null; ::VEKML_ERROR_NOT_FOUND
 *         when the node is unreadable, with 0 stored.
 */
VEKML_API vekml_return_t vekml_device_get_support_fan_info(vekml_device_t handle, uint32_t *support);

/**
 * Set the control mode, "0" (firmware) or "1" (host).
 *
 * @return ::VEKML_SUCCESS, also for another value, which is not written; ::VEKML_ERROR_NO_PERMISSION without root;
 *         ::VEKML_ERROR_NODE_IO when the write fails. Failures print a line.
 */
VEKML_API vekml_return_t vekml_device_set_fan_ctrl_mode(vekml_device_t handle, const char *text);

/**
 * Set the PWM value of a PWM fan, 1950 to 5998.
 *
 * @return ::VEKML_SUCCESS, also for a value out of range, which is not written; ::VEKML_ERROR_NO_PERMISSION without
 *         root; ::VEKML_ERROR_NODE_IO when the board has no PWM fan or the write fails. Failures print a line.
 */
VEKML_API vekml_return_t vekml_device_set_fan_pwm1(vekml_device_t handle, const char *text);

/**
 * Set the target speed of a target-speed fan, 0 to 100 percent. The control mode must not be 0.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NO_PERMISSION without root; ::VEKML_ERROR_UNKNOWN when the control mode is
 *         unreadable; ::VEKML_ERROR_NODE_IO when the board has a PWM fan, the value is out of range, the firmware
 *         controls the fan or the write fails. Failures print a line.
 */
VEKML_API vekml_return_t vekml_device_set_fan1_speed(vekml_device_t handle, const char *text);

/* ---- Power -------------------------------------------------------------------------------------------------- */

/** Electrical readings as the driver prints them. */
typedef struct power_info {
    int32_t voltage;       /**< HWMON/in0_input */
    int32_t current;       /**< HWMON/curr1_input */
    int32_t power_average; /**< HWMON/power1_average */
    int32_t total_power;   /**< HWMON/vek_total_power times 1000 */
} power_info;

/**
 * Power-support number from HWMON/vek_support_power_info.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NODE_IO when the node is unreadable, with all bits set stored.
 */
VEKML_API vekml_return_t vekml_device_get_support_power_info(vekml_device_t handle, uint32_t *support);

/**
 * Whether power readings are supported: the number above on the maker's own boards, 0 on all others.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null argument; ::VEKML_ERROR_NODE_IO when the node is
 *         unreadable, with 0 stored.
 */
VEKML_API vekml_return_t vekml_device_is_support_power(vekml_device_t handle, uint32_t *is_support);

/**
 * All four readings.
 *
 * @return ::VEKML_SUCCESS; a node that cannot be read repeats the text read before it (the total is then 1000 times the
 *         average); an unreadable first node gives 0.
 */
VEKML_API vekml_return_t vekml_device_get_power_info(vekml_device_t handle, power_info *info);

/**
 * Set the core voltage through HWMON/in0_input; blocks for 500 ms after the write.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NO_PERMISSION without root or when the driver does not let the voltage be set;
 *         ::VEKML_ERROR_NODE_IO when the write fails. Prints a line in every case.
 */
VEKML_API vekml_return_t vekml_device_set_power_volt(vekml_device_t handle, const char *text);

/**
 * Set the power cap HWMON/power1_cap, 1 to 19999.
 *
 * @return ::VEKML_SUCCESS, also for a value out of range, which is not written; ::VEKML_ERROR_NO_PERMISSION without
 *         root; ::VEKML_ERROR_NODE_IO when the write fails. Failures print a line.
 */
VEKML_API vekml_return_t vekml_device_set_power_warn(vekml_device_t handle, const char *text);

/* ---- Clocks ------------------------------------------------------------------------------------------------- */

/** Selects a clock. The last two stand the other way round in ::clock_info. */
typedef uint32_t clk_type;
enum {
    gddr_phys_clk_type = 0, /**< HWMON/vek_gddr_phys_freq_mhz */
    gfx_clk_type = 1,       /**< HWMON/vek_gfx_freq_mhz */
    acpu_clk_type = 2,      /**< HWMON/vek_acpu_freq_mhz */
    ndf_clk_type = 3,       /**< HWMON/vek_ndf_freq_mhz */
    cmcu_clk_type = 4       /**< HWMON/vek_cmcu_freq_mhz */
};

/** Clocks, MHz. */
typedef struct clock_info {
    int32_t gddr_phys_clk; /**< memory */
    int32_t gfx_clk;       /**< graphics */
    int32_t acpu_clk;      /**< ACPU */
    int32_t cmcu_clk;      /**< CMCU */
    int32_t ndf_clk;       /**< NDF */
} clock_info;

/**
 * Read one clock into its field and print it.
 *
 * @return ::VEKML_SUCCESS, with 0 stored when unreadable; ::VEKML_ERROR_NODE_IO when the type is unknown, with a line
 *         printed.
 */
VEKML_API vekml_return_t vekml_device_get_clock_info(vekml_device_t handle, clock_info *info, clk_type type);

/** All five clocks, MHz. @return ::VEKML_SUCCESS, with 0 stored for each that is unreadable. */
VEKML_API vekml_return_t vekml_device_get_clock(vekml_device_t handle, clock_info *info);

/**
 * Set the graphics clock: 50000000 to 1500000000 Hz in steps of 50000000.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_NO_PERMISSION without root; ::VEKML_ERROR_NODE_IO for any other value or when
 *         the write fails. Prints a line in every case.
 */
VEKML_API vekml_return_t vekml_device_set_gfx_clock(vekml_device_t handle, const char *text);

/* ---- Out of band -------------------------------------------------------------------------------------------- */

/* Each reads the mapped firmware block when ::vekml_out_of_band_init could map it, raw and in the firmware's units;
 * otherwise it is its in-band counterpart and returns that one's result. */

/** Fan speed. @return ::VEKML_SUCCESS; else as ::vekml_device_get_fan_speed. */
VEKML_API vekml_return_t vekml_device_get_fan_speed_by_out_of_band(vekml_device_t handle, uint32_t *speed);

/**
 * GPU and memory temperature, into `temp_input` and `gddr_temp`.
 *
 * @return ::VEKML_SUCCESS; else as the in-band counterpart.
 */
VEKML_API vekml_return_t vekml_device_get_temp_info_by_out_of_band(vekml_device_t handle, temper_info *info);

/** Voltage, current, power and total board power. @return ::VEKML_SUCCESS; else as ::vekml_device_get_power_info. */
VEKML_API vekml_return_t vekml_device_get_power_info_by_out_of_band(vekml_device_t handle, uint32_t info[4]);

/**
 * What the firmware block tells of the whole record: the second `clock`, `name`, `vbios_version`, `fw_ver`, `pci_ids`,
 * `device_id`, `pci_info`, the local total of `memory`, `chip_model`, the second `temperature`, `power_state`, `power`,
 * `fan_speed`, `support_fan_info` and `support_power_info`. Otherwise ::vekml_device_query_two_parts, after which,
 * whatever its result, the local total of `memory` is `gddr_size` times 1024, the second `clock` is divided by 1000000
 * and the last `power` by 1000.
 *
 * @return ::VEKML_SUCCESS; else as ::vekml_device_query_two_parts.
 */
VEKML_API vekml_return_t vekml_device_query_by_out_of_band(vekml_device_t handle, vekml_device_query_t *query);

/* ---- Video engines ------------------------------------------------------------------------------------------ */

/**
 * Whether the video libraries are installed: 1 or 0.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT when `valid` is null.
 */
VEKML_API vekml_return_t vekml_get_vpu_functions_valid(uint32_t *valid);

/**
 * Codec capabilities of the GPU's video engines, through VA-API on "/dev/dri/cardN". Once a query has succeeded, the
 * device record answers. Changes the process environment while it runs and restores it: callers serialise.
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_INVALID_ARGUMENT for a null argument; ::VEKML_ERROR_NOT_SUPPORTED when there
 *         is no profile or entrypoint or the profiles cannot be queried; ::VEKML_ERROR_NO_PERMISSION when the card node
 *         cannot be opened; ::VEKML_ERROR_NOT_FOUND when it is missing; ::VEKML_ERROR_LIBRARY_NOT_FOUND when the video
 *         libraries are missing or cannot be loaded, with the record initialised; ::VEKML_ERROR_UNKNOWN when VA-API
 *         cannot be started or memory runs out. Other failures leave the record alone.
 */
VEKML_API vekml_return_t vekml_device_get_vpu_info(vekml_device_t handle, Vpu_codec_info_st *info);

/**
 * Load of the video engines, commands per second: reserved as the driver reports it, executed since the previous
 * successful call (since ::vekml_init for the first; an out-of-band start takes no sample, so the first call then only
 * takes it), from "/sys/kernel/debug/vpu/xmem".
 *
 * @return ::VEKML_SUCCESS; ::VEKML_ERROR_LIBRARY_NOT_FOUND when the video libraries are missing;
 *         ::VEKML_ERROR_INVALID_ARGUMENT for a null argument; the result of the sample that ::vekml_init took, when
 *         that failed; ::VEKML_ERROR_NOT_SUPPORTED when the file lacks a number, the outputs are left alone then;
 *         ::VEKML_ERROR_NO_PERMISSION, ::VEKML_ERROR_NOT_FOUND or ::VEKML_ERROR_UNKNOWN when it may not be opened, is
 *         missing, or cannot be opened otherwise.
 */
VEKML_API vekml_return_t vekml_device_get_vpu_utlz(vekml_device_t handle, uint32_t *enc_reserved_fps,
                                                   uint32_t *enc_executed_fps, uint32_t *dec_reserved_fps,
                                                   uint32_t *dec_executed_fps);

#ifdef __cplusplus
}
#endif

#endif /* VEKML_H */
