// SPDX-License-Identifier: Apache-2.0
// A file for a bug report: the host as it stands, for veksim to play back.
#include "output.h"
#include "readings/reader_pool.h"
#include "report_nodes.h"
#include "session.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <list>
#include <sys/utsname.h>
#include <unistd.h>

namespace {

using clock = node_lane::clock;
using std::chrono::milliseconds;
using step = node_result::step;

constexpr const char *top = "veksmi-report";
constexpr const char *log_file = "/tmp/smi.log";

// Nodes that are read one after the other, and how far that has come.
struct lane {
    explicit lane(report_nodes list, clock::duration patience)
        : nodes(std::move(list)), reading(jobs_of(nodes), patience)
    {}
    static std::vector<node_job> jobs_of(const report_nodes &nodes)
    {
        std::vector<node_job> jobs;
        for (const report_node &n : nodes)
            jobs.push_back(n.job);
        return jobs;
    }

    report_nodes nodes;
    node_lane reading;
};

// What the driver counts in, without comments; empty where nothing says so, or nothing that was understood.
std::string units_of_host()
{
    std::ifstream stream(units::file);
    std::string entries;
    for (std::string line; std::getline(stream, line);)
        entries += line.substr(0, line.find('#')) + "\n";
    return units().override_with(entries).empty() ? entries : "";
}

struct tally {
    std::size_t read = 0;
    std::vector<std::string> notes{}; // on those that could not be
};

class collection {
public:
    explicit collection(const options &wanted)
        : wanted_(wanted), mask_(wanted.full), survey_(tree_, wanted.wake), deadline_(clock::now() + wanted.deadline),
          patience_(std::clamp<clock::duration>(wanted.deadline / 10, milliseconds(20), milliseconds(300)))
    {}

    // Nodes and readings at the same time, so that a GPU that hangs costs one deadline.
    void collect()
    {
        reader_pool readers({.deadline = wanted_.deadline, .wake = wanted_.wake});
        for (report_nodes &list : survey_.cards())
            lanes_.emplace_back(std::move(list), patience_);
        lanes_.emplace_back(survey_.pci_vendors(), patience_);
        readers.begin({.fields = query_fields()});
        wait_for(&readers);
        gpus_ = readers.result();
        follow_up();
    }

    void record()
    {
        for (const lane &l : lanes_) {
            for (std::size_t i = 0; i < l.nodes.size(); ++i)
                mask_.learn(l.nodes[i].what, l.reading.results()[i].text);
        }
        for (const lane &l : lanes_) {
            for (std::size_t i = 0; i < l.nodes.size(); ++i)
                record(l.nodes[i], l.reading.results()[i]);
        }
        survey_.add_libraries();
        tree_.add("/host/modules", survey_.modules());
        tree_.add("/host/packages", mask_.masked(content::package_list, survey_.packages()));
        if (const std::string used = units_of_host(); !used.empty())
            tree_.add(units::file, used);
        tree_.add("/host/euid", fmt::format("{}\n", geteuid()));
        tree_.add_directory("/dev/dri");
        tree_.add_directory("/sys/class/drm");
        tree_.add_directory("/sys/bus/pci/devices");
        const std::string query = json_document(query_fields(), gpus_) + "\n";
        tree_.add("/report.json", mask_.masked(content::kept, query));
        tree_.add("/report.txt", about());
    }

    std::string packed() const { return tree_.packed(top); }
    const answers &gpus() const { return gpus_; }
    const tally &counted() const { return counted_; }

private:
    void wait_for(reader_pool *readers)
    {
        const auto over = [](const lane &l) { return l.reading.is_over(); };
        for (;;) {
            const bool all_read = std::all_of(lanes_.begin(), lanes_.end(), over) || clock::now() >= deadline_;
            if (all_read && (readers == nullptr || readers->is_over()))
                return;
            std::vector<pollfd> watched;
            if (readers != nullptr)
                watched.push_back({readers->descriptor(), POLLIN, 0});
            for (const lane &l : lanes_)
                l.reading.watch(watched);
            constexpr int look_again = 10; // for those that hang, and for deadlines
            poll(watched.data(), watched.size(), look_again);
            if (readers != nullptr)
                readers->advance();
            for (lane &l : lanes_)
                l.reading.advance();
        }
    }

    // What the first round told to look for: processes, controllers without a card, and the end of the trace.
    void follow_up()
    {
        std::set<unsigned> processes;
        report_nodes functions, log;
        for (const lane &l : lanes_) {
            for (std::size_t i = 0; i < l.nodes.size(); ++i) {
                const report_node &n = l.nodes[i];
                const std::string &text = l.reading.results()[i].text;
                if (n.what == content::processes_reply || n.place.ends_with("/gpu_mem_util_info")) {
                    const auto found = processes_in(n.what, text);
                    processes.insert(found.begin(), found.end());
                }
                if (n.what == content::seen_not_recorded && text == fmt::format("0x{:04x}\n", VEKGPU_PCI_VENDOR_ID))
                    survey_.add_pci_function(functions, address_of(n.job.path));
            }
        }
        log.push_back(
            {.job = {.path = log_file, .what = node_job::kind::end}, .place = log_file, .what = content::trace});
        // The kernel and a plain file answer at once.
        deadline_ = std::max(deadline_, clock::now() + std::min<milliseconds>(wanted_.deadline, milliseconds(500)));
        lanes_.emplace_back(survey_.processes(processes, wanted_.full), patience_);
        lanes_.emplace_back(std::move(functions), patience_);
        lanes_.emplace_back(std::move(log), patience_);
        wait_for(nullptr);
    }

    static std::string address_of(const std::string &vendor_node)
    {
        const std::string device = vendor_node.substr(0, vendor_node.rfind('/'));
        return device.substr(device.rfind('/') + 1);
    }

    void record(const report_node &n, const node_result &said)
    {
        const bool request = n.job.what == node_job::kind::request;
        if (n.what == content::seen_not_recorded)
            return;
        if (request && said.at != step::untried && said.failed != step::opening && said.at != step::opening)
            tree_.add(n.job.path, "");
        const std::string &place =
            request && (said.at == step::opening || said.failed == step::opening) ? n.job.path : n.place;
        if (said.at == step::untried) {
            note(n, "was not read for want of time");
        } else if (said.at == step::opening) {
            note(n, "did not open");
            tree_.add_link(place, "stuck:open");
        } else if (said.at == step::reading) {
            note(n, "did not answer");
            if (request)
                tree_.add_link(place, "stuck");
            else
                tree_.add("/host/stuck" + n.job.path, "");
            tree_.add(place, "");
        } else if (said.failed != step::untried) {
            record_failure(n, said, place, request);
        } else {
            ++counted_.read;
            tree_.add(place, mask_.masked(n.what, said.text), said.writable ? 0644 : 0444);
        }
    }

    void record_failure(const report_node &n, const node_result &said, const std::string &place, bool request)
    {
        if (said.failed == step::opening && said.error == ENOENT)
            return; // it is not there, nor will it be
        note(n, std::strerror(said.error));
        if (said.failed == step::opening)
            tree_.add_link(place, fmt::format("errno:{}", said.error));
        else if (request)
            tree_.add(place, fmt::format("errno {}\n", said.error));
        else
            tree_.add_link(place, fmt::format("errno:{}:read", said.error));
    }

    void note(const report_node &n, const std::string &what)
    {
        const std::string selector =
            n.job.what == node_job::kind::request ? fmt::format(" {:08X}.{}", n.job.request, n.job.selector) : "";
        counted_.notes.push_back(fmt::format("{}{}: {}", n.job.path, selector, what));
    }

    std::string about() const
    {
        utsname system{};
        uname(&system);
        const std::time_t now = std::time(nullptr);
        std::tm local{};
        char when[64] = {};
        std::strftime(when, sizeof when, "%FT%T%z", localtime_r(&now, &local));
        std::string text =
            fmt::format("veksmi {}, {}\nkernel {} {}\n", VEKGPU_ML_VERSION, when, system.release, system.machine);
        if (wanted_.full)
            text +=
                fmt::format("host {}\n\nNothing is masked: chip ids, processes and their command lines, host name and "
                            "the whole trace are in it.\n",
                            system.nodename);
        else
            text += "\nChip ids, UUIDs and serial numbers, processes and host name are masked; of the trace, messages "
                    "that\ntell of steps alone are kept.\n";
        text += fmt::format("\nveksim --tree {} -- veksmi shows the host; report.json is what query said.\n", top);
        if (!counted_.notes.empty())
            text += fmt::format("\nNot read:\n{}\n", fmt::join(counted_.notes, "\n"));
        return text;
    }

    const options &wanted_;
    report_archive tree_;
    report_mask mask_;
    report_survey survey_;
    clock::time_point deadline_;
    clock::duration patience_;
    std::list<lane> lanes_{};
    answers gpus_{};
    tally counted_{};
};

// A file that is written once it is known what to.
class destination {
public:
    explicit destination(const options &wanted) : name_(wanted.output)
    {
        if (is_standard_output() && isatty(output_descriptor()) == 1)
            throw usage_error("standard output is a terminal; -o FILE names a file for the report");
        if (is_standard_output())
            return;
        int flags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY;
        if (name_.empty()) {
            const std::time_t now = std::time(nullptr);
            std::tm local{};
            char stamp[32] = {};
            std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", localtime_r(&now, &local));
            name_ = fmt::format("{}-{}.tar.gz", top, stamp);
            flags |= O_EXCL;
        }
        file_ = open(name_.c_str(), flags, 0600);
        error_ = file_ < 0 ? errno : 0;
    }
    ~destination()
    {
        if (file_ >= 0)
            close(file_);
    }
    destination(const destination &) = delete;
    destination &operator=(const destination &) = delete;

    bool is_standard_output() const { return name_ == "-"; }
    const std::string &name() const { return name_; }

    // 0, or the error number.
    int error() const { return error_; }
    int take(std::string_view bytes)
    {
        if (is_standard_output()) {
            put(bytes);
            return 0;
        }
        [[maybe_unused]] const int shorter = ftruncate(file_, 0); // a device or a pipe has no length
        while (!bytes.empty()) {
            const ssize_t written = write(file_, bytes.data(), bytes.size());
            if (written < 0 && errno != EINTR)
                return errno;
            bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
        }
        const int closed = close(std::exchange(file_, -1));
        return closed == 0 ? 0 : errno;
    }

private:
    std::string name_;
    int file_ = -1;
    int error_ = 0;
};

int cannot_write(const std::string &name, int error)
{
    complain(fmt::format("cannot write {}: {}", printable(name), std::strerror(error)));
    return exit_status(VEKML_ERROR_NODE_IO);
}

} // namespace

int write_report(const options &wanted, session &)
{
    if (!wanted.gpu.empty())
        throw usage_error("a report is about the whole host: it takes no --gpu");
    if (wanted.shape != format::table)
        throw usage_error("a report has no --format");
    destination file(wanted);
    if (file.error() != 0)
        return cannot_write(file.name(), file.error());
    collection host(wanted);
    host.collect();
    host.record();
    if (const int error = file.take(host.packed()); error != 0)
        return cannot_write(file.name(), error);
    status_of(host.gpus()); // for what it tells: the report itself is done
    const std::string told =
        fmt::format("{} GPU{}, {} nodes, {} that could not be read. {}", host.gpus().size(),
                    host.gpus().size() == 1 ? "" : "s", host.counted().read, host.counted().notes.size(),
                    wanted.full ? "Nothing is masked: it names chips, processes, command lines and the host."
                                : "Chip ids, processes and the host's name are masked.");
    if (file.is_standard_output())
        remark(fmt::format("Report: {}", told));
    else
        print("Wrote {}: {}\nveksim plays it back: tar -xf it, then veksim --tree {} -- veksmi\n",
              printable(file.name()), told, top);
    return exit_done;
}
