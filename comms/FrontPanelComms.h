#pragma once

// Link to the front-panel micro-controller: a line-oriented ASCII protocol on
// a character device, polled from the test manager's loop. No thread, no
// timer, no blocking wait.

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

class FrontPanelComms {
public:
    explicit FrontPanelComms(QString path = QStringLiteral("/dev/cv084_app"));
    // Closes the descriptor; sends nothing (the manager switches LEDs and
    // audio off before it lets go of the link).
    virtual ~FrontPanelComms();
    FrontPanelComms(FrontPanelComms const&) = delete;
    FrontPanelComms& operator=(FrontPanelComms const&) = delete;

    // Virtual so that the application's tests can stand in a recording link.
    virtual bool initialize();
    virtual bool servicePort();
    virtual bool sendLine(QString const& line);
    virtual void setLed(int led, int colour);
    virtual void setBrightness(int level);
    virtual void setAudioOutput();
    virtual void setSpeaker(bool on);
    virtual void setHeadphones(bool on);

    bool openPort();
    bool setTTY();
    bool fillReadQueue();
    void processReadQueue();
    bool processReceivedLine(QString const& line);
    bool RXVersion(QString const& line);
    bool RXFPGAVersion(QString const& line);
    bool RXHeadphone(QString const& line);

    // Read directly by the manager's screens.
    QString version = QStringLiteral("Uninitialised");
    QString fpgaVersion = QStringLiteral("Uninitialised");
    int32_t headphoneState = -1;
    uint32_t bytesReceived = 0;
    uint32_t bytesSent = 0;
    bool speaker = false;
    bool headphones = false;
    std::deque<char> readQueue;
    int32_t fd = -1;
    QString devicePath;
    // When each byte of readQueue was read (comms::arrivalClockUs()).
    std::deque<int64_t> readStampsUs;
    // Lines completed after this moment stay queued for a later call: the
    // manager holds back what came after a key it has not served yet.
    std::optional<int64_t> holdLinesAfterUs;

private:
    // Puts what is owed on the line, waiting at most timeoutMs for room; true
    // when nothing is owed any more.
    bool sendOwed(int timeoutMs);

    // The rest of a command that the line took only in part (see sendOwed).
    QByteArray unsentTail;
    // Whole commands the line has not taken yet, in order.
    std::vector<QByteArray> unsentCommands;
};
