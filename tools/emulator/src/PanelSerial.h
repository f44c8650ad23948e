#pragma once

// The front panel's micro-controller as seen from the controller: a
// pseudo-terminal whose slave is bound at /dev/cv084_app. It speaks the
// panel's line protocol (one-letter commands ended by a line feed), keeps
// what the host commanded (LED colours, brightness, audio routing) and
// reports the headphone jack by itself when it changes.

#include "EventLoop.h"

#include <array>
#include <cstdint>
#include <deque>
#include <string>

namespace emu {

class PanelSerial {
public:
    static constexpr int kLedCount = 17;
    static constexpr int kAllLeds = 0xff;

    struct TrafficLine {
        int64_t timeUs;   // monotonic
        bool fromHost;    // true: host -> panel
        std::string text; // without the line feed
        bool accepted;    // false: malformed or unknown command
    };

    PanelSerial(EventLoop& loop, std::string version, std::string fpgaVersion);
    ~PanelSerial();

    // Allocates the pty and binds its slave over `devicePath`.
    bool start(std::string const& devicePath);

    // Bytes as they are, no line feed added: a misbehaving board.
    void sendRaw(std::string const& bytes);
    void setJack(bool in);
    // The jack as found at power-up: reported only when asked.
    void presetJack(bool in) { jackIn_ = in; }
    // A panel whose jack detector has failed: it ignores "H" and reports no
    // changes until setJack() is called.
    void setJackSilent() { jackSilent_ = true; }
    bool jackIn() const { return jackIn_; }

    std::array<int32_t, kLedCount> const& leds() const { return leds_; } // -1: never set
    int brightness() const { return brightness_; }                       // -1: never set
    int routing() const { return routing_; }                             // -1: never set
    std::deque<TrafficLine> const& traffic() const { return traffic_; }
    uint64_t trafficBase() const { return trafficBase_; } // index of traffic().front()
    uint64_t bytesFromHost() const { return bytesFromHost_; }
    uint64_t bytesToHost() const { return bytesToHost_; }
    std::string const& slavePath() const { return slavePath_; }

private:
    void onReadable();
    void handleLine(std::string const& line);
    void send(std::string const& line);
    void writeToHost(std::string const& bytes);
    void record(bool fromHost, std::string const& text, bool accepted);

    EventLoop& loop_;
    std::string version_;
    std::string fpgaVersion_;
    int master_ = -1;
    int slave_ = -1; // held open so that the line never hangs up between users
    std::string slavePath_;
    std::string partial_;
    bool jackIn_ = false;
    bool jackSilent_ = false;
    std::array<int32_t, kLedCount> leds_{};
    int brightness_ = -1;
    int routing_ = -1;
    std::deque<TrafficLine> traffic_;
    uint64_t trafficBase_ = 0;
    uint64_t bytesFromHost_ = 0;
    uint64_t bytesToHost_ = 0;
};

} // namespace emu
