#pragma once

// A front-panel link for tests: nothing is opened; every line the real
// command formatting produces is recorded instead of written, and each
// servicePort() call can play one scripted step (e.g. a headphone report).

#include <QString>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "comms/FrontPanelComms.h"

namespace fpt::testing {

class RecordingFrontPanelComms : public FrontPanelComms {
public:
    RecordingFrontPanelComms() : FrontPanelComms(QStringLiteral("/dev/cv084_app")) {}

    bool initialize() override {
        ++initializeCalls;
        return initializeResult;
    }
    bool servicePort() override {
        ++serviceCalls;
        if (!m_steps.empty()) {
            auto step = std::move(m_steps.front());
            m_steps.pop_front();
            step(*this);
        }
        return true;
    }
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

    // ---- Script, one step per servicePort() ----
    RecordingFrontPanelComms& step(std::function<void(RecordingFrontPanelComms&)> fn) {
        m_steps.push_back(std::move(fn));
        return *this;
    }
    RecordingFrontPanelComms& idle(int polls = 1) {
        for (int i = 0; i < polls; ++i)
            step([](RecordingFrontPanelComms&) {});
        return *this;
    }
    // A line from the panel (without its line feed), parsed as received.
    RecordingFrontPanelComms& receive(QString line) {
        return step([line](RecordingFrontPanelComms& self) { self.processReceivedLine(line); });
    }
    bool scriptDone() const { return m_steps.empty(); }

    void clearRecords() {
        lines.clear();
        calls.clear();
    }

    bool initializeResult = true;
    int initializeCalls = 0;
    int serviceCalls = 0;
    std::vector<std::string> lines;
    std::vector<std::string> calls;
    // Also told every line; lets a test see what is sent while the link's
    // owner is being destroyed (the manager switches the panel off then).
    std::function<void(std::string const&)> onLine;

private:
    std::deque<std::function<void(RecordingFrontPanelComms&)>> m_steps;
};

} // namespace fpt::testing
