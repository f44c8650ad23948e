// The results file's lines and its upload.

#include <cstdio>
#include <cstring>
#include <ctime>

#include "app/FrontPanelTestManager.h"
#include "app/Termination.h"
#include "upload/JournaledUpload.h"

namespace {

constexpr std::size_t kTimeBufferSize = 99;

} // namespace

void FrontPanelTestManager::setLogFileLocation(QString const& fileName) {
    m_logFileName = fileName;
}

bool FrontPanelTestManager::createLogFile() {
    // An earlier run's results still waiting for their upload are never
    // overwritten: kept aside with their request, or the run does not start.
    QString const aside = keepPendingResultsAside(m_logFileName);
    if (aside.startsWith(QLatin1Char('!'))) {
        std::fprintf(stderr,
                     "%s holds results still waiting for their upload and cannot be kept aside "
                     "(%s): choose another name, or send them first with: %s\n",
                     m_logFileName.toLocal8Bit().constData(),
                     aside.mid(1).toLocal8Bit().constData(),
                     sendLaterCommand(m_logFileName).toLocal8Bit().constData());
        std::fflush(stderr);
        return false;
    }
    m_keptAside = aside;
    if (!m_logFile.create(m_logFileName))
        return false;

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
    m_logFile.append(text.toUtf8());
}

void FrontPanelTestManager::logUnitTestResults() {
    for (auto const& test : m_tests)
        log(QStringLiteral("%1 - %2\n")
                .arg(QString::fromLatin1(test->getTestStateStr()), test->name));
}

void FrontPanelTestManager::reportResultsKeptAside() const {
    if (m_keptAside.isEmpty())
        return;
    std::printf("Earlier results in %s were still waiting for their upload: kept as %s, still "
                "pending\n",
                m_logFileName.toLocal8Bit().constData(), m_keptAside.toLocal8Bit().constData());
    std::fflush(stdout);
}

bool FrontPanelTestManager::reportIncompleteResults() {
    if (m_logFile.complete())
        return false;
    // Said on the plain terminal, after the screen: the operator must be able
    // to read it, and note down what the file lacks.
    std::fprintf(
        stderr, "The results file %s is incomplete (%s): it is not the board's results%s.\n",
        m_logFileName.toLocal8Bit().constData(), m_logFile.reason().toLocal8Bit().constData(),
        m_uploadRequested ? " and is not uploaded" : "");
    std::fflush(stderr);
    std::printf("What it lacks:\n%s", m_logFile.unwritten().constData());
    std::fflush(stdout);
    // The mark front_panel_upload goes by, should someone name the file.
    QString why;
    m_logFile.close();
    if (!recordIncomplete(m_logFileName, resultsTargetDir(m_serialNumber), &why)) {
        std::fprintf(stderr,
                     "It could not be marked incomplete (%s): do not send it with "
                     "front_panel_upload\n",
                     why.toLocal8Bit().constData());
        std::fflush(stderr);
    }
    return true;
}

bool FrontPanelTestManager::uploadResults() {
    // Closed first so the repository gets the file exactly as it stands.
    m_logFile.close();
    SendResult const result = m_devices.upload(m_logFileName, resultsTargetDir(m_serialNumber));
    // A refusal was told with how to check the repository's copy: sending
    // again cannot help, so neither a network failure nor "send later".
    if (result != SendResult::Failed)
        return result != SendResult::Refused;
    // Told to end (Ctrl-C, a shutdown, the terminal gone): the tries were
    // given up, not failed, and the file is as pending as after a failure.
    if (int const signalNumber = fpt::terminationSignal())
        std::fprintf(stderr, "Upload interrupted by signal %d (%s)\n", signalNumber,
                     strsignal(signalNumber));
    else
        std::fputs("Nexus Upload Failed, are you connected to the network?\n", stderr);
    // A failed upload is a delay, not a loss: tell the operator where the
    // results wait (information, so standard output, after the error).
    std::printf("The results stay in %s; send them later with: %s\n",
                m_logFileName.toLocal8Bit().constData(),
                sendLaterCommand(m_logFileName).toLocal8Bit().constData());
    std::fflush(stdout);
    return false;
}
