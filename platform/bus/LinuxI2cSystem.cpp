#include "platform/bus/LinuxI2cSystem.h"

#include <cerrno>
#include <cstdio>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

int LinuxI2cSystem::ioctlTransfer(int fd, i2c_rdwr_ioctl_data& request) {
    return ::ioctl(fd, I2C_RDWR, &request);
}

LinuxI2cSystem::LinuxI2cSystem(std::string devicePrefix, Transfer transfer)
    : devicePrefix_(std::move(devicePrefix)), transfer_(std::move(transfer)) {}

LinuxI2cSystem::~LinuxI2cSystem() {
    closeDevice();
}

void LinuxI2cSystem::setErrorCallback(ErrorCallback callback) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    errorCallback_ = std::move(callback);
}

void LinuxI2cSystem::closeDevice() {
    if (fd_ >= 0) {
        ::close(fd_);
    }
    fd_ = -1;
    bus_ = -1;
}

bool LinuxI2cSystem::i2cOpen(unsigned int bus) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (fd_ >= 0 && bus_ == static_cast<int>(bus)) {
        return true;
    }
    char number[16];
    std::snprintf(number, sizeof number, "%u", bus);
    std::string const path = devicePrefix_ + number;
    closeDevice();
    fd_ = ::open(path.c_str(), O_RDWR);
    if (fd_ >= 0) {
        bus_ = static_cast<int>(bus);
    }
    return fd_ >= 0;
}

int LinuxI2cSystem::runTransfer(i2c_rdwr_ioctl_data& request) {
    int const result = transfer_(fd_, request);
    if (result < 0 && errorCallback_) {
        errorCallback_();
    }
    return result;
}

int LinuxI2cSystem::i2cWriteBytes(unsigned char address, unsigned char reg,
                                  unsigned char const* data, int length) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (fd_ < 0) {
        return -ENODEV;
    }
    // A message length is 16 bits wide and includes the register byte.
    if (length < 0 || length > 0xFFFE || (length > 0 && data == nullptr)) {
        return -EINVAL;
    }
    std::vector<unsigned char> buffer(static_cast<std::size_t>(length) + 1);
    buffer[0] = reg;
    for (int i = 0; i < length; ++i) {
        buffer[static_cast<std::size_t>(i) + 1] = data[i];
    }
    i2c_msg message{};
    message.addr = address;
    message.flags = 0;
    message.len = static_cast<decltype(message.len)>(buffer.size());
    message.buf = buffer.data();
    i2c_rdwr_ioctl_data request{};
    request.msgs = &message;
    request.nmsgs = 1;
    return runTransfer(request);
}

int LinuxI2cSystem::i2cReadBytes(unsigned char address, unsigned char reg, unsigned char* data,
                                 int length) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (fd_ < 0) {
        return -ENODEV;
    }
    if (length < 0 || length > 0xFFFF || (length > 0 && data == nullptr)) {
        return -EINVAL;
    }
    unsigned char regByte = reg;
    i2c_msg messages[2]{};
    messages[0].addr = address;
    messages[0].flags = 0;
    messages[0].len = 1;
    messages[0].buf = &regByte;
    messages[1].addr = address;
    // The adapters on this controller run the read straight on from the
    // register byte without a repeated start, hence NOSTART with RD.
    messages[1].flags = I2C_M_RD | I2C_M_NOSTART;
    messages[1].len = static_cast<decltype(messages[1].len)>(length);
    messages[1].buf = data;
    i2c_rdwr_ioctl_data request{};
    request.msgs = messages;
    request.nmsgs = 2;
    return runTransfer(request);
}

bool LinuxI2cSystem::i2cProbe(unsigned int bus, unsigned int address) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (!i2cOpen(bus)) {
        return false;
    }
    unsigned char value = 0;
    return i2cReadBytes(static_cast<unsigned char>(address), 0, &value, 1) >= 0;
}

bool LinuxI2cSystem::i2cWrite(unsigned int bus, unsigned int address, unsigned int reg,
                              unsigned int value) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    i2cOpen(bus);
    unsigned char const byte = static_cast<unsigned char>(value);
    return i2cWriteBytes(static_cast<unsigned char>(address), static_cast<unsigned char>(reg),
                         &byte, 1) >= 0;
}

unsigned int LinuxI2cSystem::i2cRead(unsigned int bus, unsigned int address, unsigned int reg,
                                     bool* ok, bool /*quiet: nothing is logged here*/) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (ok != nullptr) {
        *ok = false;
    }
    if (!i2cOpen(bus)) {
        return 0;
    }
    unsigned char value = 0;
    int const result = i2cReadBytes(static_cast<unsigned char>(address),
                                    static_cast<unsigned char>(reg), &value, 1);
    if (ok != nullptr) {
        *ok = result >= 0;
    }
    return result >= 0 ? value : 0;
}

bool LinuxI2cSystem::i2cTwoByteWrite(unsigned int bus, unsigned int address, unsigned int reg,
                                     unsigned int value) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    i2cOpen(bus);
    unsigned char const bytes[2] = {static_cast<unsigned char>(value >> 8),
                                    static_cast<unsigned char>(value)};
    return i2cWriteBytes(static_cast<unsigned char>(address), static_cast<unsigned char>(reg),
                         bytes, 2) >= 0;
}

bool LinuxI2cSystem::i2cMultiByteWrite(unsigned int bus, unsigned int address, unsigned int reg,
                                       unsigned char const* data, unsigned int length) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    i2cOpen(bus);
    if (length > 0xFFFEu) {
        return false;
    }
    return i2cWriteBytes(static_cast<unsigned char>(address), static_cast<unsigned char>(reg), data,
                         static_cast<int>(length)) >= 0;
}

unsigned int LinuxI2cSystem::i2cTwoByteRead(unsigned int bus, unsigned int address,
                                            unsigned int reg, bool* ok, bool /*quiet*/) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    if (ok != nullptr) {
        *ok = false;
    }
    if (!i2cOpen(bus)) {
        return 0;
    }
    unsigned char bytes[2] = {0, 0};
    int const result = i2cReadBytes(static_cast<unsigned char>(address),
                                    static_cast<unsigned char>(reg), bytes, 2);
    if (ok != nullptr) {
        *ok = result >= 0;
    }
    return result >= 0 ? (static_cast<unsigned int>(bytes[0]) << 8) | bytes[1] : 0;
}
