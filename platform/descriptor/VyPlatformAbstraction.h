#pragma once

// The Vy-family instrument's view of its own hardware: which boards its GPIO
// straps report, and the FPGA build record the maker's PCIe driver publishes
// in "/proc/calv_pcie".
//
// "/proc/calv_pcie" holds five unsigned numbers separated by white space
// (decimal, or hexadecimal with "0x"): FPGA id, major, minor, patch, build.

#include <fstream>

#include "platform/axi/PlatformPaths.h"
#include "version/PlatformAbstraction.h"

class VyPlatformAbstraction : public PlatformAbstraction {
public:
    // Opens paths.pcieProcFile and keeps it open; a failed open only makes
    // getFPGABuildInfo fail later.
    explicit VyPlatformAbstraction(
        Calvento::PlatformPaths const& paths = Calvento::PlatformPaths());

    // -1 for i above 3 (or negative), else read_board_id(i) on this tree.
    int getBoardId(boardIdentity i) override;
    bool hasBoard(boardIdentity i) override;
    bool getFPGABuildInfo(unsigned int& fpgaId, unsigned int& major, unsigned int& minor,
                          unsigned int& patch, unsigned int& build) override;
    // The power share board is fitted when its straps (group 3) read.
    bool isPowerShareFitted() override;

private:
    Calvento::PlatformPaths paths;
    std::ifstream pcieProc;
};
