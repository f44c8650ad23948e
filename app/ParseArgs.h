#pragma once

// The command line: -x (run without the FPGA self-test image), -f <file>
// (results file name), -h / -? (usage text).

#include <QString>

class parseArgs {
public:
    // False after the usage text was printed to standard error; the program
    // then ends with status 1.
    bool run(int argc, char** argv);

    QString outputFileName;
    bool runWithoutSelfTestImage = false;
};

// "/home/transfer/log/front_panel_test_<serial>-<yyyyMMdd-HHmmss>.txt", local
// time now.
QString createDefaultFilename(QString const& serialNumber);
