#pragma once

// A temporary sysfs-like GPIO tree: "<root>gpio<n>/value" files holding
// "0\n" or "1\n", laid out as the kernel does.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/axi/PlatformPaths.h"

namespace Calvento::testing {

class GpioTree {
public:
    GpioTree() {
        char const* tmp = std::getenv("TMPDIR");
        std::string pattern = std::string(tmp != nullptr ? tmp : "/tmp") + "/gpio_tree_XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("cannot create " + pattern);
        }
        dir_ = pattern;
    }
    ~GpioTree() {
        std::error_code ignored;
        std::filesystem::remove_all(dir_, ignored);
    }
    GpioTree(GpioTree const&) = delete;
    GpioTree& operator=(GpioTree const&) = delete;

    // The prefix read_board_id formats line numbers onto.
    std::string root() const { return dir_ + "/gpio"; }
    std::string const& dir() const { return dir_; }
    // Platform paths with this tree and "<dir>/calv_pcie" as the driver's file.
    PlatformPaths paths() const {
        PlatformPaths p;
        p.gpioRoot = root();
        p.pcieProcFile = dir_ + "/calv_pcie";
        return p;
    }

    void setLine(unsigned int line, int level) {
        std::filesystem::create_directories(root() + std::to_string(line));
        std::ofstream(valuePath(line)) << level << "\n";
    }
    void removeLine(unsigned int line) { std::filesystem::remove(valuePath(line)); }

    // Writes value over the lines, most significant bit first.
    void setLines(std::vector<unsigned int> const& lines, unsigned int value) {
        for (std::size_t i = 0; i < lines.size(); ++i) {
            setLine(lines[i], static_cast<int>((value >> (lines.size() - 1 - i)) & 1U));
        }
    }

    static std::vector<unsigned int> const& groupLines(int group) {
        static std::vector<unsigned int> const lines[4] = {
            {127, 126, 125, 124, 123, 122, 121},
            {508, 507, 506, 505, 504},
            {502, 501, 500, 499, 498, 497, 496},
            {113, 116, 115, 114},
        };
        return lines[group];
    }
    void setGroup(int group, unsigned int value) { setLines(groupLines(group), value); }
    void removeGroup(int group) {
        for (unsigned int line : groupLines(group)) {
            removeLine(line);
        }
    }

private:
    std::string valuePath(unsigned int line) const {
        return root() + std::to_string(line) + "/value";
    }

    std::string dir_;
};

} // namespace Calvento::testing
