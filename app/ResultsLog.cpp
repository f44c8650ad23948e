// The results file and its upload. The file is flushed after
// every write: an operator's results must survive whatever ends the program.

#include <cstdio>
#include <ctime>
#include <unistd.h>

#include "app/FrontPanelTestManager.h"
#include "upload/JournaledUpload.h"

namespace {

constexpr std::size_t kTimeBufferSize = 99;

} // namespace

void FrontPanelTestManager::setLogFileLocation(QString const& fileName) {
    m_logFileName = fileName;
}

bool FrontPanelTestManager::createLogFile() {
    m_logStream.setDevice(nullptr);
    if (m_logFile.isOpen())
        m_logFile.close();
    m_logFile.setFileName(m_logFileName);
    if (!m_logFile.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text)) {
        std::fputs("Couldn't open the log file ", stderr);
        std::fputs(m_logFileName.toLocal8Bit().constData(), stderr);
        std::fflush(stderr);
        return false;
    }
    m_logStream.setDevice(&m_logFile);
    m_logStream.setCodec("UTF-8");

    char started[kTimeBufferSize] = {};
    std::time_t const now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::strftime(started, sizeof started, "Tests Started: %H:%M %d/%m/%Y\n", &local);

    log(QStringLiteral("Front Panel Test Log\n"));
    log(QStringLiteral("~~~~~~~~~~~~~~~~~~~~\n\n"));
    log(QString::fromLocal8Bit(started));
    log(QStringLiteral("Serial No: %1\n").arg(m_serialNumber));
    return true;
}

void FrontPanelTestManager::log(QString const& text) {
    if (m_logStream.device() == nullptr)
        return;
    m_logStream << text;
    m_logStream.flush();
    m_logFile.flush();
    // On disk, not only in the kernel: the instrument may simply be switched
    // off once the operator has seen the result.
    ::fsync(m_logFile.handle());
}

void FrontPanelTestManager::logUnitTestResults() {
    for (auto const& test : m_tests)
        log(QStringLiteral("%1 - %2\n")
                .arg(QString::fromLatin1(test->getTestStateStr()), test->name));
}

bool FrontPanelTestManager::uploadResults() {
    // Closed first so the repository gets the file exactly as it stands.
    m_logStream.setDevice(nullptr);
    m_logFile.close();
    if (m_devices.upload(m_logFileName, resultsTargetDir(m_serialNumber)))
        return true;
    std::fputs("Nexus Upload Failed, are you connected to the network?\n", stderr);
    // A failed upload is a delay, not a loss: tell the operator where the
    // results wait (information, so standard output, after the error).
    std::printf("The results stay in %s; send them later with: %s\n",
                m_logFileName.toLocal8Bit().constData(),
                sendLaterCommand(m_logFileName).toLocal8Bit().constData());
    std::fflush(stdout);
    return false;
}
