// SPDX-License-Identifier: Apache-2.0
#include "reader.h"

#include "child_process.h"
#include "message.h"
#include "pci_address.h"
#include "process_facts.h"
#include "read_field.h"
#include "video_codecs.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <memory>
#include <stdio_ext.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>

namespace readings {
namespace {

using child_process::channel;

// ---- the reader's own side

// What the library prints goes to a file in memory, to be told with the next answer.
class printed_lines {
public:
    printed_lines()
    {
        __fpurge(stdout); // what the program had not written yet is the program's to write
        __fpurge(stderr);
        const int file = memfd_create("printed", MFD_CLOEXEC | MFD_ALLOW_SEALING);
        if (file < 0)
            return;
        dup2(file, STDOUT_FILENO);
        dup2(file, STDERR_FILENO);
        close(file);
    }

    std::string take()
    {
        std::fflush(stdout);
        std::fflush(stderr);
        std::array<char, 4096> text;
        const ssize_t length = pread(STDOUT_FILENO, text.data(), text.size(), 0);
        if (length <= 0)
            return {};
        ftruncate_all();
        return {text.data(), static_cast<std::size_t>(length)};
    }

private:
    static void ftruncate_all()
    {
        if (ftruncate(STDOUT_FILENO, 0) == 0)
            lseek(STDOUT_FILENO, 0, SEEK_SET);
    }
};

void send_document(const json &document)
{
    for (const packet &part : packets_of(document)) {
        while (send(channel, part.data(), part.size(), 0) < 0) {
            if (errno != EINTR)
                _exit(0);
        }
    }
}

// The next request; without one there is nothing left to do.
json receive_document()
{
    assembly incoming;
    packet buffer(65536);
    for (;;) {
        const ssize_t length = recv(channel, buffer.data(), buffer.size(), 0);
        if (length < 0 && errno == EINTR)
            continue;
        if (length <= 0)
            _exit(0);
        switch (incoming.add(buffer.data(), static_cast<std::size_t>(length))) {
        case assembly::outcome::whole:
            return incoming.document();
        case assembly::outcome::garbage:
            _exit(1);
        case assembly::outcome::more:
            break;
        }
    }
}

// A device that left the bus reads all ones. The GPU's PCI device itself answers, not its driver.
bool has_left_the_bus(const gpu &g)
{
    if (g.driverless())
        return false;
    const int file = open(g.card_node("device/config").c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    std::uint32_t ids = 0;
    const ssize_t length = read(file, &ids, sizeof ids);
    close(file);
    return length == sizeof ids && ids == UINT32_MAX;
}

class service {
public:
    explicit service(const assignment &what, progress &step) : what_(what), step_(step) {}

    [[noreturn]] void run()
    {
        greet();
        for (;;) {
            const json document = receive_document();
            const auto asked = request_from(document);
            const auto number = number_of(document);
            if (!asked || !number)
                _exit(1);
            send_document(answer_document(answer_to(*asked), *asked, *number));
        }
    }

private:
    // Starts the library and says whether the card is ours, and which it is.
    void greet()
    {
        step_.set(progress::starting);
        bool driverless = false;
        if (what_.out_of_band)
            driverless = vekml_out_of_band_init() != VEKML_SUCCESS;
        else
            vekml_init_card(what_.number);
        vekml_device_t handle = nullptr;
        std::uint32_t count = 0;
        vekml_device_get_count(&count);
        const std::uint32_t position = what_.out_of_band ? what_.number : 0;
        answer said;
        const request identity{.fields = pick<"model", "name", "uuid">()};
        const bool ours = vekml_device_get_handle_by_index(position, &handle) == VEKML_SUCCESS;
        if (ours) {
            gpu_ = std::make_unique<gpu>(handle, driverless);
            said = answer_to(identity);
        } else {
            said.printed = printed_.take();
        }
        json document = answer_document(said, ours ? identity : request{}, 0);
        document["ours"] = ours;
        document["count"] = count;
        send_document(document);
        if (!ours)
            _exit(0);
    }

    answer answer_to(const request &asked)
    {
        gpu &g = *gpu_;
        answer said;
        g.forget();
        said.driverless = g.driverless();
        said.bus_id = bus_id();
        if (has_left_the_bus(g)) {
            said.state = gpu_state::lost;
            return said;
        }
        for (const field *f : asked.fields) {
            step_.set(progress::first_field + static_cast<std::uint32_t>(index_of(*f)));
            said.values[index_of(*f)] = read_field(*f, g);
        }
        if (asked.processes) {
            step_.set(progress::processes);
            said.processes = processes_of(g);
        }
        if (asked.codecs) {
            step_.set(progress::codecs);
            said.codecs = codecs_of(g);
        }
        step_.set(progress::extended);
        for (const extension &e : what_.extensions) {
            if (const auto argument = asked.more.find(e.name); argument != asked.more.end())
                said.more[e.name] = e.run(g, *argument);
        }
        said.result = g.result();
        said.printed = printed_.take();
        step_.set(progress::idle);
        return said;
    }

    std::string bus_id()
    {
        vekml_pci_info_t pci{};
        vekml_device_get_pci_info(gpu_->handle(), &pci);
        const std::string text = text_of(text_value(pci.busId));
        return is_bus_id(text) ? text : std::string();
    }

    const assignment &what_;
    progress &step_;
    printed_lines printed_;
    std::unique_ptr<gpu> gpu_;
};

// ---- what can be seen of one that hangs

std::string link_target(const std::string &path)
{
    char text[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), text, sizeof text);
    return length < 0 ? std::string() : std::string(text, static_cast<std::size_t>(length));
}

// The file that it has open beside its own four descriptors.
std::string open_file(pid_t pid)
{
    const std::string folder = fmt::format("/proc/{}/fd", pid);
    const std::unique_ptr<DIR, int (*)(DIR *)> directory(opendir(folder.c_str()), closedir);
    std::string found;
    while (const dirent *entry = directory ? readdir(directory.get()) : nullptr) {
        const int number = std::atoi(entry->d_name);
        const std::string target = number > channel ? link_target(folder + "/" + entry->d_name) : "";
        if (target.starts_with('/'))
            found = target;
    }
    return found;
}

// The path that it waits to open.
std::string opened_path(pid_t pid)
{
    const int file = open(fmt::format("/proc/{}/syscall", pid).c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return {};
    char text[256] = {};
    const ssize_t length = read(file, text, sizeof text - 1);
    close(file);
    long call = -1;
    unsigned long directory = 0, path = 0;
    if (length <= 0 || std::sscanf(text, "%ld 0x%lx 0x%lx", &call, &directory, &path) != 3 || call != SYS_openat)
        return {};
    char name[256] = {};
    iovec here{name, sizeof name - 1}, there{reinterpret_cast<void *>(path), sizeof name - 1}; // NOLINT: an address
    if (process_vm_readv(pid, &here, 1, &there, 1, 0) <= 0)
        return {};
    return name;
}

} // namespace

progress::progress()
    : step_(static_cast<std::atomic<std::uint32_t> *>(
          mmap(nullptr, sizeof *step_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
{
    static_assert(std::atomic<std::uint32_t>::is_always_lock_free);
    if (step_ == MAP_FAILED) // NOLINT: libc's
        step_ = nullptr;
}

progress::~progress()
{
    if (step_ != nullptr)
        munmap(step_, sizeof *step_);
}

progress::progress(progress &&other) noexcept : step_(std::exchange(other.step_, nullptr)) {}

progress &progress::operator=(progress &&other) noexcept
{
    std::swap(step_, other.step_);
    return *this;
}

void progress::set(std::uint32_t step)
{
    if (step_ != nullptr)
        step_->store(step, std::memory_order_relaxed);
}

std::uint32_t progress::step() const
{
    return step_ == nullptr ? extended : step_->load(std::memory_order_relaxed);
}

std::string progress::text() const
{
    const std::uint32_t step = this->step();
    switch (step) {
    case settling:
    case starting:
        return "starting";
    case idle:
        return "answering";
    case processes:
        return "reading the processes";
    case codecs:
        return "asking the video engines";
    default:
        return step >= first_field && step - first_field < field_count
                   ? fmt::format("reading {}", all_fields[step - first_field].key)
                   : "at work";
    }
}

std::optional<reader> reader::start(const assignment &what)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return std::nullopt;
    progress shared;
    const pid_t program = getpid();
    const pid_t child = fork();
    if (child == 0) {
        child_process::leave(program, ends[1]);
        service(what, shared).run();
    }
    const int error = errno;
    close(ends[1]);
    if (child < 0) {
        close(ends[0]);
        errno = error;
        return std::nullopt;
    }
    return reader(child, ends[0], std::move(shared));
}

reader::reader(reader &&other) noexcept
    : pid_(other.pid_), socket_(std::exchange(other.socket_, -1)), progress_(std::move(other.progress_))
{}

reader &reader::operator=(reader &&other) noexcept
{
    std::swap(pid_, other.pid_);
    std::swap(socket_, other.socket_);
    std::swap(progress_, other.progress_);
    return *this;
}

reader::~reader()
{
    if (socket_ >= 0)
        close(socket_);
}

bool reader::send(const request &asked, std::uint64_t number) const
{
    for (const packet &part : packets_of(request_document(asked, number))) {
        if (::send(socket_, part.data(), part.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0)
            return false;
    }
    return true;
}

std::string reader::whereabouts() const
{
    std::string node = opened_path(pid_);
    if (node.empty() && progress_.step() != progress::settling)
        node = open_file(pid_);
    return node.empty() ? progress_.text() : fmt::format("{} ({})", progress_.text(), printable(node));
}

} // namespace readings
