#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/axi/PlatformPaths.h"

namespace Calvento::testing {

// A temporary sysfs-like GPIO tree, "<dir>/gpio<n>/value" holding "0\n" or
// "1\n" as the kernel lays it out, beside "<dir>/calv_pcie" for the PCIe
// driver's FPGA build record.
class GpioTree {
public:
    GpioTree() { static_cast<void>(mkdtemp(dir_.data())); }
    ~GpioTree() { std::filesystem::remove_all(dir_); }

    std::string const& dir() const { return dir_; }
    Calvento::PlatformPaths paths() const {
        Calvento::PlatformPaths p;
        p.gpioRoot = dir_ + "/gpio";
        p.pcieProcFile = dir_ + "/calv_pcie";
        return p;
    }
    void setLine(unsigned int line, char const* text) {
        std::filesystem::create_directories(paths().gpioRoot + std::to_string(line));
        std::ofstream(valuePath(line)) << text;
    }
    void removeLine(unsigned int line) { std::filesystem::remove(valuePath(line)); }
    // Writes value over the group's lines, most significant bit first.
    void setGroup(int group, unsigned int value) {
        static std::vector<unsigned int> const lines[4] = {{127, 126, 125, 124, 123, 122, 121},
                                                           {508, 507, 506, 505, 504},
                                                           {502, 501, 500, 499, 498, 497, 496},
                                                           {113, 116, 115, 114}};
        auto const& group_lines = lines[group];
        for (std::size_t i = 0; i < group_lines.size(); ++i) {
            setLine(group_lines[i], (value >> (group_lines.size() - 1 - i)) & 1U ? "1\n" : "0\n");
        }
    }
    void setFpgaBuild(char const* text) const { std::ofstream(paths().pcieProcFile) << text; }
    std::string valuePath(unsigned int line) const {
        return paths().gpioRoot + std::to_string(line) + "/value";
    }

private:
    std::string dir_ = std::filesystem::temp_directory_path() / "gpio_tree_XXXXXX";
};

} // namespace Calvento::testing
