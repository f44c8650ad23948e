// front_panel_test: production test of the CV084 front-panel board.

#include <QCoreApplication>
#include <cstdio>
#include <exception>

#include "app/FrontPanelTestManager.h"
#include "app/ParseArgs.h"
#include "app/Termination.h"
#include "app/TestPlan.h"
#include "logging/Logging.h"
#include "upload/NexusUpload.h"

namespace {

// The process-wide logger for as long as the program runs: stopped once,
// whichever way the run ends (also when a signal unwinds it).
class LoggingSession {
public:
    LoggingSession() { Calvento::initLogging(true, "/home/transfer/log/"); }
    ~LoggingSession() { stop(); }
    LoggingSession(LoggingSession const&) = delete;
    LoggingSession& operator=(LoggingSession const&) = delete;

    void stop() {
        if (m_running)
            Calvento::ceaseLogging();
        m_running = false;
    }

private:
    bool m_running = true;
};

int runProgram(parseArgs const& args) {
    LoggingSession logging;
    FrontPanelTestManager manager;
    if (!manager.selfTestFPGA().valid && !args.runWithoutSelfTestImage) {
        std::fputs("ERROR: You dont have the appropriate FPGA test bit file loaded\n"
                   "You can load the bit file by running...\n"
                   "program_fpga_selftest.sh\n"
                   "\n",
                   stdout);
        return 1;
    }

    QString const serialNumber = manager.enterBoardSerialNumber();
    QString const fileName =
        args.outputFileName.isEmpty() ? createDefaultFilename(serialNumber) : args.outputFileName;
    manager.setLogFileLocation(fileName);
    addFrontPanelTestPlan(manager, manager.selfTestFPGA().valid);

    // run() leaves the plain terminal, with any failure reason on it, so the
    // results file name comes last.
    int const status = manager.run();
    logging.stop();
    std::printf("Log filename: %s\n", fileName.toLocal8Bit().constData());
    std::fflush(stdout);
    return status;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);

    parseArgs args;
    if (!args.run(argc, argv))
        return 1;

    // Before the terminal is taken over, so curses leaves these signals to us.
    fpt::installTerminationHandlers();
    // A signal during the upload's tries gives them up at once: the file
    // stays pending in the journal for front_panel_upload.
    NexusUpload::setStopDescriptor(fpt::terminationWakeFd());

    int signalNumber = 0;
    std::exception_ptr failure;
    int status = 1;
    try {
        status = runProgram(args);
    } catch (fpt::TerminationRequested const& request) {
        signalNumber = request.signalNumber();
    } catch (...) {
        failure = std::current_exception();
    }
    // Here the manager and the logger are gone: LEDs and audio are off, the
    // terminal is back. A signal that came after the screen closed (while the
    // results were written or sent) ends the program now, as one that comes
    // from here on does at once.
    fpt::restoreDefaultTermination();
    if (signalNumber == 0)
        signalNumber = fpt::terminationSignal();
    if (signalNumber != 0)
        fpt::endBySignal(signalNumber);
    if (failure)
        std::rethrow_exception(failure);
    return status;
}
