#pragma once

// What the version table needs to know about the hardware: board ids found
// through their straps, the FPGA build record, and whether a power share
// board is fitted. VyPlatformAbstraction is the instrument's implementation.

class PlatformAbstraction {
public:
    // 0 main board, 1 mezzanine, 2 front panel, 3 power share / main ECN.
    using boardIdentity = int;

    virtual ~PlatformAbstraction() = default;

    // The board's strap id, -1 when it cannot be read.
    virtual int getBoardId(boardIdentity i) = 0;
    virtual bool hasBoard(boardIdentity i) = 0;
    // The five fields of the FPGA build record; false when unavailable.
    virtual bool getFPGABuildInfo(unsigned int& fpgaId, unsigned int& major, unsigned int& minor,
                                  unsigned int& patch, unsigned int& build) = 0;
    virtual bool isPowerShareFitted() = 0;

protected:
    PlatformAbstraction() = default;
    PlatformAbstraction(PlatformAbstraction const&) = delete;
    PlatformAbstraction& operator=(PlatformAbstraction const&) = delete;
};
