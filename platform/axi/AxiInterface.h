#pragma once

// 32-bit access to the FPGA's AXI register space, addressed by AXI sub-system
// number and word offset inside it. PcieAxi is the hardware implementation;
// tests implement it with fakes that record the traffic.
//
// Sub-system 99 means "not present in the loaded FPGA image"; accessing it is
// a programming error that PcieAxi treats as fatal.

class AxiInterface {
public:
    virtual ~AxiInterface() = default;

    // The base class has no hardware behind it: writes go nowhere, reads
    // give 0.
    virtual void axiWrite(unsigned int subsystem, unsigned int offset, unsigned long value) {
        static_cast<void>(subsystem);
        static_cast<void>(offset);
        static_cast<void>(value);
    }
    virtual unsigned int axiRead(unsigned int subsystem, unsigned int offset) {
        static_cast<void>(subsystem);
        static_cast<void>(offset);
        return 0;
    }

protected:
    AxiInterface() = default;
    AxiInterface(AxiInterface const&) = delete;
    AxiInterface& operator=(AxiInterface const&) = delete;
};

namespace Calvento {
// The sub-system number handed out for blocks the loaded image does not have.
inline constexpr unsigned int kUnassignedAxiSubsystem = 99;
} // namespace Calvento
