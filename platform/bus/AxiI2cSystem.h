#pragma once

// The FPGA's own I2C engine, reached through registers of AXI sub-system 0.
// A command word names the bus (the engine's mux channel, bits 26..24) and
// the 7-bit slave address (bits 23..17), carries the start bit (0x10000) and
// holds register and data in its low 16 bits; the status register reports
// busy, data valid (the "phase" bit), acknowledge error and the read byte.

#include <memory>
#include <mutex>

#include "platform/bus/I2cSystem.h"

class AxiInterface;

class AxiI2cSystem : public I2cSystem {
public:
    explicit AxiI2cSystem(std::shared_ptr<AxiInterface> axi);

    bool i2cProbe(unsigned int bus, unsigned int address) override;
    bool i2cWrite(unsigned int bus, unsigned int address, unsigned int reg,
                  unsigned int value) override;
    unsigned int i2cRead(unsigned int bus, unsigned int address, unsigned int reg, bool* ok,
                         bool quiet) override;
    bool i2cTwoByteWrite(unsigned int bus, unsigned int address, unsigned int reg,
                         unsigned int value) override;
    bool i2cMultiByteWrite(unsigned int bus, unsigned int address, unsigned int reg,
                           unsigned char const* data, unsigned int length) override;
    unsigned int i2cTwoByteRead(unsigned int bus, unsigned int address, unsigned int reg, bool* ok,
                                bool quiet) override;

    // Writes the engine's bus timing and resets it, once per process.
    virtual bool i2cInit();
    virtual void i2cReset();

    // Polls until not busy (at most 1024 polls after the first read); the
    // last status, 0 when nothing could be read.
    unsigned int waitForI2cReadyAndGetStatusRegister();
    // Polls until the engine has taken one phase of a multi-phase transfer
    // (busy with the phase bit clear) or reports an acknowledge error, at most
    // 1024 polls after the first read; the last status.
    unsigned int i2cMultiPhaseBusySetAndGetStatusRegister();

    // The engine's bus numbers: 3 bits of mux channel.
    static constexpr unsigned int kMaxBus = 7;

private:
    void initialiseFPGAi2c();
    unsigned int readStatus() const;
    void writeCommand(unsigned int command) const;
    unsigned int deviceBits(unsigned int bus, unsigned int address) const;
    bool readPhase(unsigned int command, bool quiet, unsigned int& status);
    unsigned int readBytes(unsigned int bus, unsigned int address, unsigned int reg,
                           unsigned int count, bool* ok, bool quiet, char const* what);
    bool writeFailed(unsigned int bus, unsigned int address) const;

    std::shared_ptr<AxiInterface> axi_;
    std::recursive_mutex mutex_;

    unsigned int const subsystem_ = 0;
    unsigned int const statusRegister_ = 0x2A;
    unsigned int const commandRegister_ = 0x2B;
    unsigned int const resetRegister_ = 0x2C;
    unsigned int const timingRegister1_ = 0x2D;
    unsigned int const timingRegister2_ = 0x2E;
    unsigned int const timingRegister3_ = 0x2F;
    unsigned int const startBit_ = 0x10000;
    unsigned int const busyBit_ = 0x400;
    unsigned int const phaseBit_ = 0x800;
    unsigned int const ackErrorBit_ = 0x100;
    unsigned int const statusPolls_ = 1024;
    unsigned int const probeRetries_ = 10;
    // Read and multi-phase paths. The engine's low-bit layout is ours to
    // define: a read command names the register in bits 15..8; a two-byte
    // read is two phases, the first of which leaves the bus held; a write
    // that continues a held transfer carries the next data byte.
    unsigned int const oneByte_ = 1;
    unsigned int const twoBytes_ = 2;
    unsigned int const readCommandBit_ = 0x20000000; // a read transfer
    unsigned int const holdBusBit_ = 0x10000000;     // more phases follow, no stop
    unsigned int const nextPhaseBit_ = 0x08000000;   // continues the held transfer
    unsigned int const busHeldBit_ = 0x200;          // status: waiting for the next phase

    // Bus timing: each word holds two 16-bit counts of the engine clock.
    static constexpr unsigned int kTiming1 = 0x032A03B8;
    static constexpr unsigned int kTiming2 = 0x01FB03F6;
    static constexpr unsigned int kTiming3 = 0x03B8032A;

    // The engine is one per FPGA however many objects drive it: its timing is
    // written by the first i2cInit of the process only.
    static bool fpgaI2cInitialised;
};
