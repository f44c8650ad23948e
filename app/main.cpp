// front_panel_test: production test of the CV084 front-panel board.

#include <QCoreApplication>
#include <cstdio>
#include <exception>

#include "app/FrontPanelTestManager.h"
#include "app/ParseArgs.h"
#include "app/Termination.h"
#include "app/TestPlan.h"
#include "logging/Logging.h"

namespace {

int runProgram(parseArgs const& args) {
    FrontPanelTestManager manager;
    if (!manager.selfTestFPGA().valid && !args.runWithoutSelfTestImage) {
        std::fputs("ERROR: You dont have the appropriate FPGA test bit file loaded\n"
                   "You can load the bit file by running...\n"
                   "program_fpga_selftest.sh\n"
                   "\n",
                   stdout);
        Calvento::ceaseLogging();
        return 1;
    }

    QString const serialNumber = manager.enterBoardSerialNumber();
    QString const fileName =
        args.outputFileName.isEmpty() ? createDefaultFilename(serialNumber) : args.outputFileName;
    manager.setLogFileLocation(fileName);
    addFrontPanelTestPlan(manager, manager.selfTestFPGA().valid);

    int const status = manager.run();
    // The results file name goes to the plain terminal, after the screens
    // are closed; should the run have failed before closing them, the
    // manager gives the terminal back first.
    manager.closeDisplay();
    Calvento::ceaseLogging();
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
    Calvento::initLogging(true, "/home/transfer/log/");

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
    // Here the manager is gone: LEDs and audio are off, the terminal is back.
    if (signalNumber != 0) {
        Calvento::ceaseLogging();
        fpt::endBySignal(signalNumber);
    }
    if (failure)
        std::rethrow_exception(failure);
    return status;
}
