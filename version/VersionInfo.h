#pragma once

// The ordered table of version facts: the software's build metadata, the
// board ids found and the FPGA build. The process-wide object is
// Calvento::getVersionInfo() (platform/descriptor/VyVersionInfo.h).

#include <string>
#include <utility>
#include <vector>

class PlatformAbstraction;

class VersionInfo {
public:
    using Entry = std::pair<std::string, std::string>;

    // Fills the table, asking the platform for boards 0, 3, 1, 2 and then
    // the FPGA build record.
    explicit VersionInfo(PlatformAbstraction& platform);

    std::vector<Entry> const& getEntries() const { return entries; }
    // The value under name; empty when there is no such entry.
    std::string getValue(std::string const& name) const;
    // The "Main" board id as an integer; 0 when it is not a number.
    int device() const;

private:
    void set(std::string const& name, std::string value);

    std::vector<Entry> entries;
};
