#include "platform/bus/AxiI2cSystem.h"

#include <utility>

#include "logging/VyLog.h"
#include "platform/axi/AxiInterface.h"

bool AxiI2cSystem::fpgaI2cInitialised = false;

namespace {
// Guards the class-wide flag; the per-object mutex only guards one object.
std::mutex& initialisationMutex() {
    static std::mutex mutex;
    return mutex;
}
} // namespace

AxiI2cSystem::AxiI2cSystem(std::shared_ptr<AxiInterface> axi) : axi_(std::move(axi)) {}

unsigned int AxiI2cSystem::readStatus() const {
    return axi_ ? axi_->axiRead(subsystem_, statusRegister_) : 0;
}

void AxiI2cSystem::writeCommand(unsigned int command) const {
    if (axi_) {
        axi_->axiWrite(subsystem_, commandRegister_, command);
    }
}

unsigned int AxiI2cSystem::deviceBits(unsigned int bus, unsigned int address) const {
    return ((bus << 24) & 0x7000000) | ((address << 17) & 0xFE0000) | startBit_;
}

bool AxiI2cSystem::i2cInit() {
    initialiseFPGAi2c();
    return true;
}

void AxiI2cSystem::initialiseFPGAi2c() {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    std::lock_guard<std::mutex> once(initialisationMutex());
    if (fpgaI2cInitialised) {
        return;
    }
    if (axi_) {
        axi_->axiWrite(subsystem_, timingRegister1_, kTiming1);
        axi_->axiWrite(subsystem_, timingRegister2_, kTiming2);
        axi_->axiWrite(subsystem_, timingRegister3_, kTiming3);
    }
    i2cReset();
    fpgaI2cInitialised = true;
}

void AxiI2cSystem::i2cReset() {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (axi_) {
        axi_->axiWrite(subsystem_, resetRegister_, 1);
    }
}

unsigned int AxiI2cSystem::waitForI2cReadyAndGetStatusRegister() {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    unsigned int status = readStatus();
    for (unsigned int poll = 0; (status & busyBit_) != 0 && poll < statusPolls_; ++poll) {
        status = readStatus();
    }
    return status;
}

unsigned int AxiI2cSystem::i2cMultiPhaseBusySetAndGetStatusRegister() {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    auto const settled = [this](unsigned int status) {
        return (status & ackErrorBit_) != 0 ||
               ((status & phaseBit_) == 0 && (status & busyBit_) != 0);
    };
    unsigned int status = readStatus();
    for (unsigned int poll = 0; !settled(status) && poll < statusPolls_; ++poll) {
        status = readStatus();
    }
    return status;
}

bool AxiI2cSystem::i2cProbe(unsigned int bus, unsigned int address) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    waitForI2cReadyAndGetStatusRegister();
    unsigned int const command = deviceBits(bus, address);
    for (unsigned int attempt = 0; attempt <= probeRetries_; ++attempt) {
        writeCommand(command);
        unsigned int const status = waitForI2cReadyAndGetStatusRegister();
        if (status != 0 && (status & ackErrorBit_) == 0) {
            return true;
        }
    }
    return false;
}

bool AxiI2cSystem::writeFailed(unsigned int bus, unsigned int address) const {
    Calvento::vyLogError("{0} Failed. Bus {1} Device {2}", "i2cWrite", bus, address);
    return false;
}

bool AxiI2cSystem::i2cWrite(unsigned int bus, unsigned int address, unsigned int reg,
                            unsigned int value) {
    unsigned char const byte = static_cast<unsigned char>(value);
    return i2cMultiByteWrite(bus, address, reg, &byte, 1);
}

bool AxiI2cSystem::i2cTwoByteWrite(unsigned int bus, unsigned int address, unsigned int reg,
                                   unsigned int value) {
    unsigned char const bytes[2] = {static_cast<unsigned char>(value >> 8),
                                    static_cast<unsigned char>(value)};
    return i2cMultiByteWrite(bus, address, reg, bytes, 2);
}

bool AxiI2cSystem::i2cMultiByteWrite(unsigned int bus, unsigned int address, unsigned int reg,
                                     unsigned char const* data, unsigned int length) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    // The first command word carries the register together with the first
    // data byte, so a write without data has nothing to send.
    if (length == 0 || data == nullptr) {
        return writeFailed(bus, address);
    }
    waitForI2cReadyAndGetStatusRegister();
    for (unsigned int i = 0; i < length; ++i) {
        bool const last = i + 1 == length;
        unsigned int command = deviceBits(bus, address) | data[i];
        command |= i == 0 ? (reg & 0xFF) << 8 : nextPhaseBit_;
        if (!last) {
            command |= holdBusBit_;
        }
        writeCommand(command);
        if (!last) {
            unsigned int const status = i2cMultiPhaseBusySetAndGetStatusRegister();
            bool const taken = (status & ackErrorBit_) == 0 && (status & busyBit_) != 0 &&
                               (status & phaseBit_) == 0;
            if (!taken) {
                return writeFailed(bus, address);
            }
        } else {
            unsigned int const status = waitForI2cReadyAndGetStatusRegister();
            if (status == 0 || (status & (ackErrorBit_ | busyBit_)) != 0) {
                return writeFailed(bus, address);
            }
        }
    }
    return true;
}

bool AxiI2cSystem::readPhase(unsigned int command, bool quiet, unsigned int& status) {
    writeCommand(command);
    status = waitForI2cReadyAndGetStatusRegister();
    if ((status & ackErrorBit_) != 0) {
        if (!quiet) {
            Calvento::vyLogError("Nak occured whilst reading i2c, readValue: {0}", status);
        }
        return false;
    }
    if ((status & phaseBit_) == 0) {
        if (!quiet) {
            Calvento::vyLogError("Status valid not set, readValue: {0}", status);
        }
        return false;
    }
    return true;
}

unsigned int AxiI2cSystem::readBytes(unsigned int bus, unsigned int address, unsigned int reg,
                                     unsigned int count, bool* ok, bool quiet, char const* what) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (ok != nullptr) {
        *ok = false;
    }
    waitForI2cReadyAndGetStatusRegister();
    for (unsigned int attempt = 0; attempt <= probeRetries_; ++attempt) {
        unsigned int value = 0;
        bool good = true;
        for (unsigned int phase = 0; phase < count && good; ++phase) {
            bool const last = phase + 1 == count;
            unsigned int command = deviceBits(bus, address) | readCommandBit_;
            command |= phase == 0 ? (reg & 0xFF) << 8 : nextPhaseBit_;
            if (!last) {
                command |= holdBusBit_;
            }
            unsigned int status = 0;
            good = readPhase(command, quiet, status);
            // Before the last byte the engine must still hold the bus for the
            // next phase; otherwise it has ended the transfer early.
            if (good && !last && (status & busHeldBit_) == 0) {
                if (!quiet) {
                    Calvento::vyLogError("Status valid not set, readValue: {0}", status);
                }
                good = false;
            }
            value = (value << 8) | (status & 0xFF);
        }
        if (good) {
            if (ok != nullptr) {
                *ok = true;
            }
            return value;
        }
    }
    if (!quiet) {
        Calvento::vyLogError("{}: Too many i2c retries", what);
    }
    return 0;
}

unsigned int AxiI2cSystem::i2cRead(unsigned int bus, unsigned int address, unsigned int reg,
                                   bool* ok, bool quiet) {
    return readBytes(bus, address, reg, oneByte_, ok, quiet, "i2cRead");
}

unsigned int AxiI2cSystem::i2cTwoByteRead(unsigned int bus, unsigned int address, unsigned int reg,
                                          bool* ok, bool quiet) {
    return readBytes(bus, address, reg, twoBytes_, ok, quiet, "i2cTwoByteRead");
}
