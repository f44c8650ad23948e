#pragma once

// The emulated CV084 instrument: the panel's serial line, its two input
// devices, the FPGA register window, the board-id straps, syslog capture,
// and the control socket through which tests and people work the panel.

#include "EventLoop.h"
#include "InputDevices.h"
#include "PanelSerial.h"
#include "RegisterWindow.h"

#include <array>
#include <deque>
#include <map>
#include <string>
#include <vector>

namespace emu {

struct Options {
    std::string runDir = "/run/cv084-emu";
    std::string stateDir = "/run/cv084-emu";
    unsigned design = 11; // the self-test image ("25G_Self_Test")
    unsigned firmwareVersion = 0x0103;
    uint32_t firmwareBuild = 0x07e90b16;
    bool jackIn = false;
    bool jackSilent = false;                      // the detector reports nothing
    size_t inputRecordSize = sizeof(input_event); // what a program built here reads
    std::string panelVersion = "V1.4.0";
    std::string panelFpgaVersion = "F0.9.2";
    std::string calvPcie = "1 11 3 0 22\n";
    // Board-id straps of a VyP instrument: CV079 baseboard (id above 63),
    // mezzanine, CV084 front panel (id above 4), CV098 power share board.
    int baseboardId = 65;
    int mezzanineId = 1;
    int frontPanelId = 5;
    int powerShareId = 1;
};

class Instrument {
public:
    explicit Instrument(Options opts);
    ~Instrument();

    bool start();
    void run() { loop_.run(); }
    void stop() { loop_.stop(); }

private:
    struct Conn {
        std::string in;
        bool busy = false;
    };
    struct Held {
        EventLoop::TimerId repeatTimer = 0;
    };

    bool writeStraps();
    bool startSyslog();
    bool startControl();
    void onControlAccept();
    void onControlReadable(int fd);
    void pump(int fd);
    void reply(int fd, std::string const& json);
    void command(int fd, std::vector<std::string> const& args);

    void keyDown(int button, bool repeat);
    void keyUp(int button);
    void turnStep(int fd, int remaining, int direction, int intervalMs);
    std::string stateJson() const;
    std::string trafficJson(uint64_t from) const;
    std::string tonesJson(size_t from) const;
    std::string syslogJson(size_t from) const;

    Options opts_;
    EventLoop loop_;
    PanelSerial serial_;
    InputDevices input_;
    RegisterWindow regs_;
    int syslogFd_ = -1;
    FILE* syslogFile_ = nullptr;
    std::deque<std::string> syslog_;
    int controlFd_ = -1;
    std::map<int, Conn> conns_;
    std::map<int, Held> held_;
    std::string controlPath_;
};

} // namespace emu
