// cv084-emulator: the emulated CV084 instrument. Runs as root inside a
// private mount and network namespace (see run-in-emulator.sh), where it
// puts the panel's devices at their real paths for the unchanged
// front_panel_test to use.

#include "Instrument.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

void usage() {
    std::fprintf(
        stderr,
        "usage: cv084-emulator [options]\n"
        "  --design N            FPGA firmware design in the register window (11 = "
        "self-test image)\n"
        "  --jack in|out|unknown headphone jack at start (unknown: the panel never reports it)\n"
        "  --input-record 16|24  bytes per input event record: 16 for a 32-bit reader, 24 for\n"
        "                        a 64-bit one (default: this build's own)\n"
        "  --panel-version TEXT  the panel's answer to V (default V1.4.0)\n"
        "  --panel-fpga TEXT     the panel's F line sent after it (empty: none)\n"
        "  --state-dir DIR       where syslog.log is kept\n"
        "  --run-dir DIR         control socket and backing files (/run/cv084-emu)\n"
        "  --ready-file PATH     written once every device is in place\n");
}

emu::Instrument* g_instrument = nullptr;

void onSignal(int) {
    if (g_instrument != nullptr) {
        g_instrument->stop();
    }
}

} // namespace

int main(int argc, char** argv) {
    emu::Options opts;
    std::string readyFile;
    static option longOpts[] = {{"design", required_argument, nullptr, 'd'},
                                {"jack", required_argument, nullptr, 'j'},
                                {"input-record", required_argument, nullptr, 'i'},
                                {"panel-version", required_argument, nullptr, 'v'},
                                {"panel-fpga", required_argument, nullptr, 'f'},
                                {"state-dir", required_argument, nullptr, 's'},
                                {"run-dir", required_argument, nullptr, 'r'},
                                {"ready-file", required_argument, nullptr, 'R'},
                                {"help", no_argument, nullptr, 'h'},
                                {nullptr, 0, nullptr, 0}};
    int c;
    while ((c = getopt_long(argc, argv, "h", longOpts, nullptr)) != -1) {
        switch (c) {
        case 'd':
            opts.design = unsigned(std::strtoul(optarg, nullptr, 0));
            break;
        case 'j':
            opts.jackIn = std::strcmp(optarg, "in") == 0;
            opts.jackSilent = std::strcmp(optarg, "unknown") == 0;
            break;
        case 'i':
            opts.inputRecordSize = std::strtoul(optarg, nullptr, 10);
            if (opts.inputRecordSize != emu::InputDevices::kRecord32 &&
                opts.inputRecordSize != emu::InputDevices::kRecord64) {
                usage();
                return 2;
            }
            break;
        case 'v':
            opts.panelVersion = optarg;
            break;
        case 'f':
            opts.panelFpgaVersion = optarg;
            break;
        case 's':
            opts.stateDir = optarg;
            break;
        case 'r':
            opts.runDir = optarg;
            break;
        case 'R':
            readyFile = optarg;
            break;
        default:
            usage();
            return 2;
        }
    }

    // Never outlive the namespace's set-up script.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGHUP, &sa, nullptr);
    signal(SIGPIPE, SIG_IGN);

    emu::Instrument instrument(opts);
    g_instrument = &instrument;
    if (!instrument.start()) {
        std::fprintf(stderr, "cv084-emulator: start-up failed\n");
        return 1;
    }
    if (!readyFile.empty()) {
        FILE* f = std::fopen(readyFile.c_str(), "w");
        if (f != nullptr) {
            std::fprintf(f, "%d\n", int(getpid()));
            std::fclose(f);
        }
    }
    instrument.run();
    g_instrument = nullptr;
    return 0;
}
