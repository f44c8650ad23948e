#include "RegisterWindow.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <unistd.h>

namespace emu {

namespace {
constexpr int kPollMs = 5;
constexpr size_t kHistoryLimit = 10000;
} // namespace

RegisterWindow::RegisterWindow(EventLoop& loop, std::string backingFile)
    : loop_(loop), backingFile_(std::move(backingFile)) {}

RegisterWindow::~RegisterWindow() {
    if (base_ != nullptr) {
        munmap(const_cast<uint32_t*>(base_), kSize);
    }
    if (fd_ >= 0) {
        close(fd_);
    }
}

bool RegisterWindow::start(std::string const& devicePath, unsigned design, unsigned version,
                           uint32_t build) {
    fd_ = open(backingFile_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0660);
    if (fd_ < 0 || ftruncate(fd_, off_t(kSize)) != 0) {
        perror(backingFile_.c_str());
        return false;
    }
    void* p = mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
    if (p == MAP_FAILED) {
        perror("emulator: mmap register window");
        return false;
    }
    base_ = static_cast<volatile uint32_t*>(p);
    // Version word: bit 31 flag, bits 30..16 design, bits 15..0 the version
    // with its bytes swapped (the FPGA stores it little-end first).
    uint32_t swapped = ((version & 0xff) << 8) | ((version >> 8) & 0xff);
    base_[kFirmwareVersion] = ((design & 0x7fff) << 16) | swapped;
    base_[kFirmwareBuild] = build;
    // No chips hang on the emulated I2C engine, and a polled window cannot
    // answer a command within the program's status polls. The engine
    // therefore always reads idle with the last phase acknowledged: every
    // single-byte write and probe succeeds and reads return 0. Multi-phase
    // writes still fail, as they would need the busy bit to rise.
    base_[kI2cStatus] = kI2cStatusIdleAcked;

    int dev = open(devicePath.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0660);
    if (dev < 0) {
        perror(devicePath.c_str());
        return false;
    }
    close(dev);
    if (mount(backingFile_.c_str(), devicePath.c_str(), nullptr, MS_BIND, nullptr) != 0) {
        perror("emulator: bind register window");
        return false;
    }
    last_ = Tone{EventLoop::nowUs(), base_[kVolume], base_[kToneHigh], base_[kTonePeriod]};
    history_.push_back(last_);
    loop_.after(kPollMs, [this] { poll(); });
    return true;
}

uint32_t RegisterWindow::word(uint32_t subsystem, uint32_t offset) const {
    size_t index = (size_t(subsystem) << 16) | (offset & 0xffff);
    return index < kSize / 4 ? base_[index] : 0xffffffffu;
}

RegisterWindow::Tone RegisterWindow::current() const {
    return Tone{EventLoop::nowUs(), base_[kVolume], base_[kToneHigh], base_[kTonePeriod]};
}

void RegisterWindow::poll() {
    // Polled rather than trapped: the program stores straight into its
    // mapping, so the only way to see a write is to look.
    Tone now = current();
    if (now.volumeRaw != last_.volumeRaw || now.high != last_.high || now.period != last_.period) {
        last_ = now;
        history_.push_back(now);
        if (history_.size() > kHistoryLimit) {
            history_.pop_front();
        }
    }
    loop_.after(kPollMs, [this] { poll(); });
}

} // namespace emu
