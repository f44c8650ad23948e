#pragma once

// A front-panel link for tests: nothing is opened; every line the real
// command formatting produces is recorded instead of written, and each
// servicePort() call can play one scripted step (e.g. a headphone report).

#include <QString>
#include <functional>
#include <string>
#include <vector>

#include "app/testing/ScriptedPort.h"
#include "comms/FrontPanelComms.h"

namespace fpt::testing {

class RecordingFrontPanelComms : public ScriptedPort<FrontPanelComms, RecordingFrontPanelComms> {
public:
    RecordingFrontPanelComms() : ScriptedPort(QStringLiteral("/dev/cv084_app")) {}

    // Every command line the link would send, "\n" included.
    bool sendLine(QString const& line) override {
        lines.push_back(line.toStdString());
        if (onLine)
            onLine(lines.back());
        bytesSent += static_cast<uint32_t>(line.toLocal8Bit().size());
        return true;
    }
    void setLed(int led, int colour) override {
        calls.push_back("setLed(" + std::to_string(led) + "," + std::to_string(colour) + ")");
        FrontPanelComms::setLed(led, colour);
    }
    void setBrightness(int level) override {
        calls.push_back("setBrightness(" + std::to_string(level) + ")");
        FrontPanelComms::setBrightness(level);
    }
    void setSpeaker(bool on) override {
        calls.push_back(std::string("setSpeaker(") + (on ? "true" : "false") + ")");
        FrontPanelComms::setSpeaker(on);
    }
    void setHeadphones(bool on) override {
        calls.push_back(std::string("setHeadphones(") + (on ? "true" : "false") + ")");
        FrontPanelComms::setHeadphones(on);
    }

    // A line from the panel (without its line feed), parsed as received.
    RecordingFrontPanelComms& receive(QString line) {
        return step([line](RecordingFrontPanelComms& self) { self.processReceivedLine(line); });
    }

    void clearRecords() {
        lines.clear();
        calls.clear();
    }

    std::vector<std::string> lines;
    std::vector<std::string> calls;
    // Also told every line; lets a test see what is sent while the link's
    // owner is being destroyed (the manager switches the panel off then).
    std::function<void(std::string const&)> onLine;
};

} // namespace fpt::testing
