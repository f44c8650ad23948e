#include "app/ParseArgs.h"

#include <QDateTime>
#include <cstdio>
#include <unistd.h>

namespace {

void printUsage() {
    std::fputs("Usage: front_panel_test -x -h -? -f output/filename.txt\n"
               "Where:-\n"
               "  -? or -h      Prints ths help message\n"
               "  -x            Runs the testapp even if a valid FPGA bitfile is not loaded.\n"
               "  -f <filename> Writes the output to the passed filename instead of "
               "/home/transfer/log/front_panel_test_nnnnnn_nnnnnn.txt\n",
               stderr);
}

} // namespace

bool parseArgs::run(int argc, char** argv) {
    // 0 rather than 1: makes getopt start over completely should the
    // arguments ever be parsed twice in one process.
    optind = 0;
    int opt;
    while ((opt = getopt(argc, argv, "xf:h?")) != -1) {
        switch (opt) {
        case 'x':
            runWithoutSelfTestImage = true;
            break;
        case 'f':
            if (optarg == nullptr) {
                printUsage();
                return false;
            }
            outputFileName = QString::fromUtf8(optarg);
            break;
        case 'h':
        case '?':
            printUsage();
            return false;
        default:
            break;
        }
    }
    return true;
}

QString createDefaultFilename(QString const& serialNumber) {
    return QStringLiteral("/home/transfer/log/front_panel_test_%1-%2.txt")
        .arg(serialNumber,
             QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss")));
}
