#include "PanelSerial.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/mount.h>
#include <termios.h>
#include <unistd.h>

namespace emu {

namespace {

constexpr size_t kTrafficLimit = 200000;

bool isHex(std::string const& s) {
    for (char c : s) {
        // The host formats with lower-case digits; anything else is a host bug.
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) {
            return false;
        }
    }
    return !s.empty();
}

} // namespace

PanelSerial::PanelSerial(EventLoop& loop, std::string version, std::string fpgaVersion)
    : loop_(loop), version_(std::move(version)), fpgaVersion_(std::move(fpgaVersion)) {
    leds_.fill(-1);
}

PanelSerial::~PanelSerial() {
    if (master_ >= 0) {
        loop_.unwatch(master_);
        close(master_);
    }
    if (slave_ >= 0) {
        close(slave_);
    }
}

bool PanelSerial::start(std::string const& devicePath) {
    master_ = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) {
        perror("emulator: pty");
        return false;
    }
    char name[128];
    if (ptsname_r(master_, name, sizeof name) != 0) {
        perror("emulator: ptsname");
        return false;
    }
    slavePath_ = name;
    slave_ = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (slave_ < 0) {
        perror("emulator: open pty slave");
        return false;
    }
    // No echo from the start: with the pty's default echo the panel's own
    // unsolicited reports would come straight back as host commands before
    // the program has set the line up. The input flags stay as a tty device
    // comes up (XON/XOFF flow control, CR to LF): the program must clear them.
    termios tio{};
    tcgetattr(slave_, &tio);
    tcflag_t const deviceInput = tio.c_iflag;
    cfmakeraw(&tio);
    tio.c_iflag = deviceInput;
    tcsetattr(slave_, TCSANOW, &tio);

    int fd = open(devicePath.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0660);
    if (fd < 0) {
        perror(devicePath.c_str());
        return false;
    }
    close(fd);
    if (mount(name, devicePath.c_str(), nullptr, MS_BIND, nullptr) != 0) {
        perror("emulator: bind pty slave");
        return false;
    }
    loop_.watch(master_, EPOLLIN, [this](uint32_t) { onReadable(); });
    return true;
}

void PanelSerial::onReadable() {
    char buf[512];
    for (;;) {
        ssize_t n = read(master_, buf, sizeof buf);
        if (n <= 0) {
            return;
        }
        bytesFromHost_ += uint64_t(n);
        partial_.append(buf, size_t(n));
        size_t pos;
        while ((pos = partial_.find('\n')) != std::string::npos) {
            std::string line = partial_.substr(0, pos);
            partial_.erase(0, pos + 1);
            handleLine(line);
        }
    }
}

void PanelSerial::record(bool fromHost, std::string const& text, bool accepted) {
    traffic_.push_back(TrafficLine{EventLoop::nowUs(), fromHost, text, accepted});
    if (traffic_.size() > kTrafficLimit) {
        traffic_.pop_front();
        ++trafficBase_;
    }
}

void PanelSerial::send(std::string const& line) {
    record(false, line, true);
    writeToHost(line + "\n");
}

void PanelSerial::sendRaw(std::string const& bytes) {
    record(false, bytes, true);
    writeToHost(bytes);
}

void PanelSerial::writeToHost(std::string const& bytes) {
    ssize_t n = ::write(master_, bytes.data(), bytes.size());
    if (n > 0) {
        bytesToHost_ += uint64_t(n);
    }
}

void PanelSerial::handleLine(std::string const& line) {
    bool ok = false;
    if (line == "V") {
        record(true, line, true);
        send(version_);
        if (!fpgaVersion_.empty()) {
            send(fpgaVersion_);
        }
        return;
    }
    if (line == "H") {
        record(true, line, true);
        if (!jackSilent_) {
            send(jackIn_ ? "H1" : "H0");
        }
        return;
    }
    if (line.size() == 9 && line[0] == 'L' && isHex(line.substr(1))) {
        int led = int(std::strtol(line.substr(1, 2).c_str(), nullptr, 16));
        int32_t colour = int32_t(std::strtol(line.substr(3, 6).c_str(), nullptr, 16));
        if (led == kAllLeds) {
            leds_.fill(colour);
            ok = true;
        } else if (led < kLedCount) {
            leds_[size_t(led)] = colour;
            ok = true;
        }
    } else if (line.size() == 3 && line[0] == 'B' && isHex(line.substr(1))) {
        brightness_ = int(std::strtol(line.substr(1).c_str(), nullptr, 16));
        ok = true;
    } else if (line.size() == 2 && line[0] == 'A' && line[1] >= '0' && line[1] <= '3') {
        routing_ = line[1] - '0';
        ok = true;
    }
    record(true, line, ok);
    if (ok) {
        send("OK");
    }
    // The micro-controller stays silent on anything it does not understand;
    // the traffic record marks the line as rejected.
}

void PanelSerial::setJack(bool in) {
    if (in == jackIn_ && !jackSilent_) {
        return;
    }
    jackSilent_ = false;
    jackIn_ = in;
    send(in ? "H1" : "H0");
}

} // namespace emu
