#include "Instrument.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace emu {

namespace {

// The panel's 17 buttons by index, with the key code its input driver
// reports for each and the names the control interface accepts.
struct Button {
    uint16_t code;
    char const* name;
    char const* alias;
};
constexpr std::array<Button, 17> kButtons{{
    {125, "calvento", "logo"}, // KEY_LEFTMETA
    {59, "f1", "f1"},
    {60, "f2", "f2"},
    {61, "f3", "f3"},
    {62, "f4", "f4"},
    {63, "f5", "f5"},
    {64, "f6", "f6"},
    {65, "f7", "f7"},
    {66, "f8", "f8"},
    {67, "f9", "f9"},
    {68, "f10", "f10"},
    {108, "down", "down"},   // KEY_DOWN
    {105, "left", "left"},   // KEY_LEFT
    {103, "up", "up"},       // KEY_UP
    {106, "right", "right"}, // KEY_RIGHT
    {132, "ok", "front"},    // KEY_FRONT
    {113, "knob", "shftenc"} // KEY_MUTE: the encoder pushed in
}};

constexpr int kRepeatDelayMs = 250; // the kernel's default auto-repeat timing
constexpr int kRepeatPeriodMs = 33;
constexpr size_t kSyslogLimit = 20000;

std::string lower(std::string s) {
    for (char& c : s) {
        if (c >= 'A' && c <= 'Z') {
            c = char(c - 'A' + 'a');
        }
    }
    return s;
}

int buttonIndex(std::string const& name) {
    std::string n = lower(name);
    for (size_t i = 0; i < kButtons.size(); ++i) {
        if (n == kButtons[i].name || n == kButtons[i].alias) {
            return int(i);
        }
    }
    char* end = nullptr;
    long v = std::strtol(n.c_str(), &end, 10);
    if (!n.empty() && *end == '\0' && v >= 0 && v < long(kButtons.size())) {
        return int(v);
    }
    return -1;
}

std::string quote(std::string const& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (c < 0x20 || c >= 0x7f) {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\u%04x", c);
                out += buf;
            } else {
                out += char(c);
            }
        }
    }
    return out + "\"";
}

std::string error(std::string const& what) {
    return "{\"ok\":false,\"error\":" + quote(what) + "}";
}

bool writeFile(std::string const& path, std::string const& text) {
    FILE* f = std::fopen(path.c_str(), "w");
    if (f == nullptr) {
        perror(path.c_str());
        return false;
    }
    std::fputs(text.c_str(), f);
    return std::fclose(f) == 0;
}

} // namespace

Instrument::Instrument(Options opts)
    : opts_(std::move(opts)), serial_(loop_, opts_.panelVersion, opts_.panelFpgaVersion),
      input_(loop_, opts_.inputRecordSize), regs_(loop_, opts_.runDir + "/xdma0_user") {}

Instrument::~Instrument() {
    for (auto& c : conns_) {
        close(c.first);
    }
    if (controlFd_ >= 0) {
        close(controlFd_);
        unlink(controlPath_.c_str());
    }
    if (syslogFd_ >= 0) {
        close(syslogFd_);
    }
    if (syslogFile_ != nullptr) {
        std::fclose(syslogFile_);
    }
    input_.unmount();
}

bool Instrument::start() {
    mkdir(opts_.runDir.c_str(), 0755);
    if (!serial_.start("/dev/cv084_app")) {
        return false;
    }
    serial_.presetJack(opts_.jackIn);
    if (opts_.jackSilent) {
        serial_.setJackSilent();
    }
    if (!input_.mount("/dev/input")) {
        std::fprintf(stderr, "emulator: cannot mount the input devices on /dev/input\n");
        return false;
    }
    if (!regs_.start("/dev/xdma0_user", opts_.design, opts_.firmwareVersion, opts_.firmwareBuild)) {
        return false;
    }
    if (!writeStraps() || !writeFile(opts_.runDir + "/calv_pcie", opts_.calvPcie)) {
        return false;
    }
    return startSyslog() && startControl();
}

bool Instrument::writeStraps() {
    struct Group {
        int value;
        std::vector<int> lines; // most significant first
    };
    std::vector<Group> groups = {
        {opts_.baseboardId, {127, 126, 125, 124, 123, 122, 121}},
        {opts_.mezzanineId, {508, 507, 506, 505, 504}},
        {opts_.frontPanelId, {502, 501, 500, 499, 498, 497, 496}},
        {opts_.powerShareId, {113, 116, 115, 114}},
    };
    std::string root = "/sys/class/gpio";
    mkdir(root.c_str(), 0755);
    for (auto const& g : groups) {
        if (g.value < 0) {
            continue; // board not fitted: its lines are not exported
        }
        for (size_t i = 0; i < g.lines.size(); ++i) {
            int bit = (g.value >> (g.lines.size() - 1 - i)) & 1;
            std::string dir = root + "/gpio" + std::to_string(g.lines[i]);
            mkdir(dir.c_str(), 0755);
            if (!writeFile(dir + "/value", bit ? "1\n" : "0\n") ||
                !writeFile(dir + "/direction", "in\n")) {
                return false;
            }
        }
    }
    return true;
}

bool Instrument::startSyslog() {
    syslogFile_ = std::fopen((opts_.stateDir + "/syslog.log").c_str(), "a");
    syslogFd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, "/dev/log", sizeof addr.sun_path - 1);
    unlink(addr.sun_path);
    if (syslogFile_ == nullptr || syslogFd_ < 0 ||
        bind(syslogFd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        perror("emulator: /dev/log");
        return false;
    }
    chmod(addr.sun_path, 0666);
    loop_.watch(syslogFd_, EPOLLIN, [this](uint32_t) {
        char buf[8192];
        ssize_t n;
        while ((n = recv(syslogFd_, buf, sizeof buf, 0)) > 0) {
            std::string msg(buf, size_t(n));
            while (!msg.empty() && (msg.back() == '\n' || msg.back() == '\0')) {
                msg.pop_back();
            }
            std::fprintf(syslogFile_, "%s\n", msg.c_str());
            std::fflush(syslogFile_);
            syslog_.push_back(msg);
            if (syslog_.size() > kSyslogLimit) {
                syslog_.pop_front();
            }
        }
    });
    return true;
}

bool Instrument::startControl() {
    // In the state directory, which the host shares: people can work the
    // panel from outside the namespace too. The run directory links to it.
    controlPath_ = opts_.stateDir + "/control.sock";
    if (opts_.stateDir != opts_.runDir) {
        std::string link = opts_.runDir + "/control.sock";
        unlink(link.c_str());
        if (symlink(controlPath_.c_str(), link.c_str()) != 0) {
            perror(link.c_str());
            return false;
        }
    }
    controlFd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, controlPath_.c_str(), sizeof addr.sun_path - 1);
    unlink(addr.sun_path);
    if (controlFd_ < 0 || bind(controlFd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        listen(controlFd_, 16) != 0) {
        perror("emulator: control socket");
        return false;
    }
    loop_.watch(controlFd_, EPOLLIN, [this](uint32_t) { onControlAccept(); });
    return true;
}

void Instrument::onControlAccept() {
    int fd;
    while ((fd = accept4(controlFd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)) >= 0) {
        conns_[fd] = Conn{};
        loop_.watch(fd, EPOLLIN, [this, fd](uint32_t) { onControlReadable(fd); });
    }
}

void Instrument::onControlReadable(int fd) {
    char buf[4096];
    for (;;) {
        ssize_t n = recv(fd, buf, sizeof buf, 0);
        if (n > 0) {
            conns_[fd].in.append(buf, size_t(n));
            continue;
        }
        if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
            loop_.unwatch(fd);
            close(fd);
            conns_.erase(fd);
            return;
        }
        break;
    }
    pump(fd);
}

void Instrument::pump(int fd) {
    auto it = conns_.find(fd);
    while (it != conns_.end() && !it->second.busy) {
        size_t pos = it->second.in.find('\n');
        if (pos == std::string::npos) {
            return;
        }
        std::string line = it->second.in.substr(0, pos);
        it->second.in.erase(0, pos + 1);
        std::istringstream words(line);
        std::vector<std::string> args;
        for (std::string w; words >> w;) {
            args.push_back(w);
        }
        if (!args.empty()) {
            command(fd, args);
        }
        it = conns_.find(fd);
    }
}

void Instrument::reply(int fd, std::string const& json) {
    auto it = conns_.find(fd);
    if (it == conns_.end()) {
        return; // the asker went away while a press or turn was running
    }
    std::string out = json + "\n";
    size_t done = 0;
    while (done < out.size()) {
        ssize_t n = send(fd, out.data() + done, out.size() - done, MSG_NOSIGNAL);
        if (n > 0) {
            done += size_t(n);
        } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            fd_set w; // a large reply to a slow reader: wait for room
            FD_ZERO(&w);
            FD_SET(fd, &w);
            select(fd + 1, nullptr, &w, nullptr, nullptr);
        } else {
            break;
        }
    }
    it->second.busy = false;
}

void Instrument::keyDown(int button, bool repeat) {
    if (held_.count(button) != 0) {
        return;
    }
    input_.emit(InputDevices::Keyboard, EV_KEY, kButtons[size_t(button)].code, 1, true);
    Held h;
    if (repeat) {
        std::shared_ptr<std::function<void()>> tick = std::make_shared<std::function<void()>>();
        *tick = [this, button, tick] {
            auto it = held_.find(button);
            if (it == held_.end()) {
                return;
            }
            input_.emit(InputDevices::Keyboard, EV_KEY, kButtons[size_t(button)].code, 2);
            it->second.repeatTimer = loop_.after(kRepeatPeriodMs, *tick);
        };
        h.repeatTimer = loop_.after(kRepeatDelayMs, *tick);
    }
    held_[button] = h;
}

void Instrument::keyUp(int button) {
    auto it = held_.find(button);
    if (it == held_.end()) {
        return;
    }
    if (it->second.repeatTimer != 0) {
        loop_.cancel(it->second.repeatTimer);
    }
    held_.erase(it);
    input_.emit(InputDevices::Keyboard, EV_KEY, kButtons[size_t(button)].code, 0, true);
}

namespace {

// The stamping clock of an input node's reader, as the state reports it.
char const* clockName(int clock) {
    switch (clock) {
    case CLOCK_REALTIME:
        return "\"realtime\"";
    case CLOCK_MONOTONIC:
        return "\"monotonic\"";
    case CLOCK_BOOTTIME:
        return "\"boottime\"";
    default:
        return "null";
    }
}

} // namespace

void Instrument::turnStep(int fd, int remaining, int direction, int intervalMs) {
    // One detent per wheel event. The panel's encoder reports a clockwise
    // detent as a negative wheel movement.
    input_.emit(InputDevices::Mouse, EV_REL, REL_WHEEL, -direction);
    if (remaining <= 1) {
        reply(fd, "{\"ok\":true}");
        pump(fd);
        return;
    }
    loop_.after(intervalMs, [this, fd, remaining, direction, intervalMs] {
        turnStep(fd, remaining - 1, direction, intervalMs);
    });
}

void Instrument::command(int fd, std::vector<std::string> const& args) {
    std::string const& cmd = args[0];
    auto arg = [&args](size_t i, long dflt) {
        return i < args.size() ? std::strtol(args[i].c_str(), nullptr, 10) : dflt;
    };
    conns_[fd].busy = true;
    if (cmd == "ping") {
        reply(fd, "{\"ok\":true}");
    } else if (cmd == "buttons") {
        std::string out = "{\"ok\":true,\"buttons\":[";
        for (size_t i = 0; i < kButtons.size(); ++i) {
            out += (i ? "," : "") + quote(kButtons[i].name);
        }
        reply(fd, out + "]}");
    } else if (cmd == "press" || cmd == "hold" || cmd == "release") {
        int b = args.size() > 1 ? buttonIndex(args[1]) : -1;
        if (b < 0) {
            reply(fd, error("unknown button; try: emuctl buttons"));
        } else if (cmd == "hold") {
            int64_t down = EventLoop::nowUs();
            keyDown(b, args.size() > 2 && args[2] == "repeat");
            reply(fd, "{\"ok\":true,\"down_us\":" + std::to_string(down) + "}");
        } else if (cmd == "release") {
            keyUp(b);
            reply(fd, "{\"ok\":true}");
        } else {
            // A press is as long as a finger's: long enough for the
            // program's 100 ms poll to see the button down.
            long ms = arg(2, 250);
            int64_t down = EventLoop::nowUs(); // same clock as the serial traffic
            keyDown(b, false);
            loop_.after(ms, [this, fd, b, down] {
                keyUp(b);
                reply(fd, "{\"ok\":true,\"down_us\":" + std::to_string(down) + "}");
                pump(fd);
            });
        }
    } else if (cmd == "turn") {
        long n = arg(1, 0);
        long interval = arg(2, 150);
        if (n == 0) {
            reply(fd, "{\"ok\":true}");
        } else {
            turnStep(fd, int(n < 0 ? -n : n), n < 0 ? -1 : 1, int(interval));
        }
    } else if (cmd == "jack") {
        if (args.size() < 2 || (args[1] != "in" && args[1] != "out")) {
            reply(fd, error("jack in|out"));
        } else {
            serial_.setJack(args[1] == "in");
            reply(fd, "{\"ok\":true}");
        }
    } else if (cmd == "serial-raw") {
        // Bytes in hexadecimal, sent by the panel as they are.
        std::string bytes;
        std::string const hex = args.size() > 1 ? args[1] : "";
        for (size_t i = 0; i + 1 < hex.size(); i += 2) {
            bytes += char(std::strtol(hex.substr(i, 2).c_str(), nullptr, 16));
        }
        if (bytes.empty() || hex.size() % 2 != 0) {
            reply(fd, error("serial-raw HEXBYTES"));
        } else {
            serial_.sendRaw(bytes);
            reply(fd, "{\"ok\":true}");
        }
    } else if (cmd == "state") {
        reply(fd, stateJson());
    } else if (cmd == "traffic") {
        reply(fd, trafficJson(uint64_t(arg(1, 0))));
    } else if (cmd == "tones") {
        reply(fd, tonesJson(size_t(arg(1, 0))));
    } else if (cmd == "syslog") {
        reply(fd, syslogJson(size_t(arg(1, 0))));
    } else if (cmd == "quit") {
        reply(fd, "{\"ok\":true}");
        loop_.stop();
    } else {
        reply(fd, error("unknown command " + cmd));
    }
}

std::string Instrument::stateJson() const {
    std::ostringstream o;
    o << "{\"ok\":true,\"leds\":[";
    auto const& leds = serial_.leds();
    for (size_t i = 0; i < leds.size(); ++i) {
        char buf[16];
        std::snprintf(buf, sizeof buf, "\"%06x\"", unsigned(leds[i]));
        o << (i ? "," : "") << (leds[i] < 0 ? "null" : buf);
    }
    o << "],\"brightness\":" << serial_.brightness() << ",\"routing\":" << serial_.routing()
      << ",\"jack\":" << quote(serial_.jackIn() ? "in" : "out") << ",\"held\":[";
    bool first = true;
    for (auto const& h : held_) {
        o << (first ? "" : ",") << quote(kButtons[size_t(h.first)].name);
        first = false;
    }
    RegisterWindow::Tone t = regs_.current();
    char freq[32];
    std::snprintf(freq, sizeof freq, "%.3f", RegisterWindow::frequencyHz(t.period));
    char vol[32];
    std::snprintf(vol, sizeof vol, "%.3f", RegisterWindow::volumePercent(t.volumeRaw));
    o << "],\"design\":" << opts_.design << ",\"tone\":{\"volume_raw\":" << t.volumeRaw
      << ",\"volume_percent\":" << vol << ",\"high\":" << t.high << ",\"period\":" << t.period
      << ",\"frequency_hz\":" << freq << "}";
    char const* names[] = {"keyboard", "mouse"};
    for (int d = 0; d < 2; ++d) {
        auto dev = InputDevices::Device(d);
        o << ",\"" << names[d] << "\":{\"open\":" << input_.openCount(dev)
          << ",\"grabbed\":" << (input_.grabbed(dev) ? "true" : "false")
          << ",\"clock\":" << clockName(input_.grabberClock(dev))
          << ",\"events\":" << input_.eventsDelivered(dev) << ",\"queued\":" << input_.queued(dev)
          << ",\"refused_grabs\":" << input_.grabRefusals(dev) << "}";
    }
    uint64_t rejected = 0;
    for (auto const& l : serial_.traffic()) {
        rejected += l.accepted ? 0 : 1;
    }
    o << ",\"serial\":{\"device\":" << quote(serial_.slavePath())
      << ",\"from_host_bytes\":" << serial_.bytesFromHost()
      << ",\"to_host_bytes\":" << serial_.bytesToHost()
      << ",\"lines\":" << serial_.trafficBase() + serial_.traffic().size()
      << ",\"rejected\":" << rejected << "}}";
    return o.str();
}

std::string Instrument::trafficJson(uint64_t from) const {
    std::ostringstream o;
    uint64_t base = serial_.trafficBase();
    auto const& t = serial_.traffic();
    o << "{\"ok\":true,\"next\":" << base + t.size() << ",\"lines\":[";
    bool first = true;
    for (uint64_t i = std::max(from, base); i < base + t.size(); ++i) {
        auto const& l = t[size_t(i - base)];
        o << (first ? "" : ",") << "{\"i\":" << i << ",\"t_us\":" << l.timeUs
          << ",\"dir\":" << (l.fromHost ? "\"host\"" : "\"panel\"") << ",\"text\":" << quote(l.text)
          << ",\"ok\":" << (l.accepted ? "true" : "false") << "}";
        first = false;
    }
    o << "]}";
    return o.str();
}

std::string Instrument::tonesJson(size_t from) const {
    std::ostringstream o;
    auto const& h = regs_.history();
    o << "{\"ok\":true,\"next\":" << h.size() << ",\"tones\":[";
    for (size_t i = from; i < h.size(); ++i) {
        char freq[32];
        std::snprintf(freq, sizeof freq, "%.3f", RegisterWindow::frequencyHz(h[i].period));
        o << (i == from ? "" : ",") << "{\"t_us\":" << h[i].timeUs
          << ",\"volume_raw\":" << h[i].volumeRaw << ",\"high\":" << h[i].high
          << ",\"period\":" << h[i].period << ",\"frequency_hz\":" << freq << "}";
    }
    o << "]}";
    return o.str();
}

std::string Instrument::syslogJson(size_t from) const {
    std::ostringstream o;
    o << "{\"ok\":true,\"next\":" << syslog_.size() << ",\"lines\":[";
    for (size_t i = from; i < syslog_.size(); ++i) {
        o << (i == from ? "" : ",") << quote(syslog_[i]);
    }
    o << "]}";
    return o.str();
}

} // namespace emu
