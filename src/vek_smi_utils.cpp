// SPDX-License-Identifier: Apache-2.0
#include "vek_smi_utils.h"

#include "debug_log.h"
#include "regular_expression.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>

namespace vekml {

// ---- Driver nodes ----

unique_fd node_ref::open(int flags) const
{
    if (missing_) {
        errno = ENOENT;
        return {};
    }
    return unique_fd(::open(path_, flags | O_CLOEXEC));
}

int read_from_node(const node_ref &node, char *dst, std::uint32_t size)
{
    const unique_fd file = node.open(O_RDONLY);
    if (!file) {
        const char *reason = strerror(errno);
        TRACE("open error");
        TRACE("%d, %s, %s", file.get(), reason, node.path());
        return -1;
    }

    // The first read only measures: the driver makes the text anew for each.
    char text[node_capacity];
    ssize_t length = pread(file.get(), text, sizeof text, 0);
    TRACE("readsize is %d", static_cast<int>(length));
    if (length > 0)
        length = pread(file.get(), text, static_cast<std::size_t>(length), 0);
    if (length < 0) {
        const char *reason = strerror(errno);
        TRACE("read %s error", node.path());
        TRACE("%d, %s, %s", file.get(), reason, node.path());
        return -1;
    }

    const auto bytes = static_cast<std::size_t>(length);
    text[bytes == 0 ? 0 : bytes - 1] = '\0';
    if (bytes > size)
        printf("ret size too small.ret_len is %d, read size is %d\n", static_cast<int>(size), static_cast<int>(length));
    if (const std::size_t room = std::min<std::size_t>(bytes, size); room > 0) {
        strncpy(dst, text, room);
        dst[room - 1] = '\0';
    }
    TRACE("%s", text);
    return 0;
}

int write_to_node(const node_ref &node, const char *text)
{
    const unique_fd file = node.open(O_RDWR);
    if (!file) {
        const char *reason = strerror(errno);
        TRACE("open error");
        TRACE("%d, %s, %s", file.get(), reason, node.path());
        return -1;
    }
    const std::size_t length = strlen(text);
    const bool written = write(file.get(), text, length) >= 0;
    const char *reason = written ? "" : strerror(errno);
    TRACE("writebuff = %s node path : %s, size of writebuff : %ld, strlen tmp : %ld", text, node.path(), 8L,
          static_cast<long>(length));
    if (!written)
        TRACE("write %s errno = %s", node.path(), reason);
    return written ? 0 : -1;
}

int get_data_from_node(const node_ref &node, std::uint64_t *value)
{
    TRACE("node_path: %s.", node.path());
    const unique_file file = read_as_stream(node.open(O_RDONLY));
    if (!file) {
        TRACE("fopen() %s failed.", node.path());
        return -1;
    }
    (void)!fscanf(file.get(), "%lx", value);
    TRACE("get data from [%s]: 0x%04lx", node.path(), *value);
    return 0;
}

std::int32_t decimal(const char *text)
{
    return static_cast<std::int32_t>(strtol(text, nullptr, 10));
}

void copy_text(char *dst, std::size_t size, const char *text)
{
    const std::size_t length = strnlen(text, size - 1);
    std::memcpy(dst, text, length);
    dst[length] = '\0';
}

// ---- Text helpers ----

int pick_regex(const char *text, const char *pattern, std::uint32_t n, unique_text *out)
{
    TRACE("enter pick_regex");
    const regular_expression compiled(pattern, REG_EXTENDED | REG_ICASE | REG_NEWLINE);
    if (compiled.error() != 0) {
        char reason[1024];
        regerror(compiled.error(), compiled.get(), reason, sizeof reason);
        printf("err:%s\n", reason);
        return -1;
    }
    const std::size_t entries = std::size_t{n} + 1;
    const std::unique_ptr<regmatch_t, memory_releaser> matches(
        static_cast<regmatch_t *>(calloc(entries, sizeof(regmatch_t))));
    if (!matches)
        return -1;
    if (regexec(compiled.get(), text, entries, matches.get(), REG_NOTBOL) != 0) {
        TRACE("match unsuccessful!");
        return -1;
    }
    TRACE("sub_reg_num is %ld", static_cast<long>(compiled.get()->re_nsub));
    for (std::size_t i = 0; i < entries; ++i) {
        const regmatch_t &match = matches.get()[i];
        if (match.rm_so == -1)
            return -1;
        const auto length = static_cast<std::size_t>(match.rm_eo - match.rm_so);
        TRACE("len is: %d, i = %d", static_cast<int>(length), static_cast<int>(i));
        out[i].reset(static_cast<char *>(calloc(length + 1, 1)));
        if (!out[i])
            return -1;
        std::memcpy(out[i].get(), text + match.rm_so, length);
        TRACE("value%d提取的值为：%s, str长度为%ld, 地址为%p", static_cast<int>(i), out[i].get(),
              static_cast<long>(strlen(out[i].get())), static_cast<void *>(out[i].get()));
    }
    TRACE("address compiled:%p", static_cast<const void *>(compiled.get()));
    TRACE("exit pick_regex");
    return 0;
}

std::uint32_t bits_of_integer(int value)
{
    auto rest = static_cast<std::uint32_t>(value);
    std::uint32_t digits = 0;
    for (; rest != 0; rest /= 10)
        ++digits;
    return digits;
}

void version_to_str(std::uint32_t version, char *dst, int size)
{
    TRACE("enter version_to_str");
    const std::uint32_t major = version >> 24;
    const std::uint32_t minor = (version >> 16) & 0xff;
    const std::uint32_t patch = version & 0xffff;
    TRACE("get bit24-bit31(the 4th byte): %x", major);
    TRACE("get bit16-bit23(the 3rd byte): %x", minor);
    TRACE("get bit0-bit15(the lowest 2 bytes): %x", patch);
    TRACE("final version:v%x.%x.%x", major, minor, patch);

    // Measured in decimal digits although the text is hexadecimal: clients know which versions read "N/A".
    const auto required = bits_of_integer(static_cast<int>(major)) + bits_of_integer(static_cast<int>(minor)) +
                          bits_of_integer(static_cast<int>(patch)) + 3;
    if (size < 0 || required > static_cast<std::uint32_t>(size)) {
        TRACE("insufficient version size.");
        TRACE("final version:%s", dst);
        return;
    }
    snprintf(dst, static_cast<std::size_t>(size), "v%x.%x.%x", major, minor, patch);
    TRACE("ver:%s", dst);
    TRACE("exit version_to_str");
}

void decimal_to_hex(std::uint32_t value, char *dst, int size)
{
    TRACE("enter decimal_to_hex");
    char digits[9] = {};
    const int length = value == 0 ? 0 : snprintf(digits, sizeof digits, "%x", value);
    if (size < length) {
        TRACE("insufficient size of uuid");
        return;
    }
    TRACE("gpu_uuid: ");
    for (int i = 0; i < length; ++i) {
        dst[i] = digits[i];
        TRACE_OPEN("%c", digits[i]);
    }
    TRACE("\ngpu_uuid:%.*s", size, dst);
}

int parse_dbdf(const char *text, std::uint64_t *domain, std::uint64_t *bus, std::uint64_t *device,
               std::uint64_t *function)
{
    constexpr std::size_t length = 12;
    if (strlen(text) != length) {
        TRACE_OPEN("pci_dbdf format wrong.");
        return -1;
    }
    char address[21] = {};
    std::memcpy(address, text, length);
    TRACE("%s", address);

    char *end = nullptr;
    const unsigned long parsed_domain = strtoul(address, &end, 16);
    if (end != address + 4 || *end != ':')
        return -1;
    TRACE("domain is %lx", parsed_domain);
    *domain = parsed_domain;

    const unsigned long parsed_bus = strtoul(end + 1, &end, 16);
    if (end != address + 7 || *end != ':')
        return -1;
    TRACE("bus is %lx", parsed_bus);
    *bus = parsed_bus;

    const unsigned long parsed_device = strtoul(end + 1, &end, 16);
    if (end != address + 10 || *end != '.')
        return -1;
    TRACE("device is %lx", parsed_device);
    *device = parsed_device;

    const unsigned long parsed_function = strtoul(end + 1, &end, 16);
    if (end != address + length)
        return -1;
    TRACE("func is %lx", parsed_function);
    *function = parsed_function;

    TRACE("device bdfid is %lx", parsed_domain << 32 | parsed_bus << 8 | parsed_device << 3 | parsed_function);
    return 0;
}

// ---- The host ----

namespace {

constexpr char driver_name[] = "vekgpu";

/** The output of a shell command, line by line, without line ends. */
class command_output {
public:
    explicit command_output(const char *command)
    {
        const closed_descriptors_taken for_others;
        pipe_.reset(popen(command, "re"));
    }

    explicit operator bool() const { return pipe_ != nullptr; }

    /** The next line, or a piece of an overlong one; null at the end. It may be cut up by the caller. */
    char *next_line()
    {
        if (fgets(line_, sizeof line_, pipe_.get()) == nullptr)
            return nullptr;
        line_[strcspn(line_, "\n")] = '\0';
        return line_;
    }

private:
    struct pipe_closer {
        void operator()(FILE *pipe) const { pclose(pipe); }
    };
    std::unique_ptr<FILE, pipe_closer> pipe_;
    char line_[512];
};

/** The version in a line of the package list that tells of an installed driver package, else null. */
char *installed_driver_version(char *line)
{
    if (strstr(line, driver_name) == nullptr || strncmp(line, "ii", 2) != 0)
        return nullptr;
    char *rest = nullptr;
    const bool has_package = strtok_r(line, " ", &rest) != nullptr && strtok_r(nullptr, " ", &rest) != nullptr;
    return has_package ? strtok_r(nullptr, " ", &rest) : nullptr;
}

} // namespace

int is_out_of_band()
{
    TRACE("\nenter is_out_of_band.");
    command_output modules("lsmod | grep vekgpu");
    if (!modules) {
        perror("failed to popen command");
        return -1;
    }
    while (const char *line = modules.next_line()) {
        if (strstr(line, driver_name) != nullptr)
            return 0;
    }
    TRACE("exit is_out_of_band.");
    return 1;
}

void get_driver_release_version(char *ver, std::uint32_t size)
{
    TRACE("\nenter get_driver_release_version");
    command_output packages("dpkg -l | grep vekgpu");
    if (!packages) {
        TRACE("run 'dpkg -l | grep vekgpu' failed.");
        return;
    }
    char *version = nullptr;
    while (version == nullptr) {
        char *line = packages.next_line();
        if (line == nullptr) {
            TRACE("cannot match the vekgpu driver version.");
            return;
        }
        TRACE("line:%s", line);
        version = installed_driver_version(line);
    }
    version[strcspn(version, "-")] = '\0'; // the packaging revision
    TRACE("version:%s", version);
    const std::size_t length = strlen(version);
    if (length > size) {
        TRACE("the size of ver is too small. We need size greater than %zu", length);
        return;
    }
    std::memcpy(ver, version, length + 1); // callers keep room for the terminator of a version of just `size`
    TRACE("driver version:%s", version);
    TRACE("exit get_driver_release_version");
}

bool is_root()
{
    return geteuid() == 0;
}

bool require_root(const char *consequence)
{
    if (is_root())
        return true;
    puts("Permission denied!");
    puts(consequence);
    return false;
}

} // namespace vekml
