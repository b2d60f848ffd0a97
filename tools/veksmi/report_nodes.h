// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "report_archive.h"
#include "report_mask.h"
#include "report_reader.h"

#include <set>
#include <string>
#include <vector>

// Something of the host that a report holds.
struct report_node {
    node_job job;
    std::string place{}; // in the tree
    content what = content::kept;
};
using report_nodes = std::vector<report_node>; // read one after the other

// What there is to read, found out without touching a node of a driver; links go to TREE at once.
class report_survey {
public:
    report_survey(report_archive &tree, bool wake) : tree_(tree), wake_(wake) {}

    std::vector<report_nodes> cards(); // one list for each, and one for what the driver has for all
    // The PCI functions of the host, to see which are ours.
    report_nodes pci_vendors() const;
    void add_pci_function(report_nodes &list, const std::string &address);
    static report_nodes processes(const std::set<unsigned> &numbers, bool keep_all);
    void add_libraries(); // which there are
    std::string modules() const;
    std::string packages() const;

private:
    report_nodes card(unsigned number, bool ours);
    void add(report_nodes &list, const std::string &path, content what = content::kept,
             node_job::kind kind = node_job::kind::node) const;
    void add_bus(report_nodes &list, const std::string &device, bool ask);
    void add_answers(report_nodes &list, const std::string &device) const;
    bool link(const std::string &path);
    void link_function(const std::string &path);

    report_archive &tree_;
    bool wake_;
    std::set<std::string> functions_{}; // of the PCI, that are in a list
};
