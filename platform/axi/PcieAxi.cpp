#include "platform/axi/PcieAxi.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

#include <sys/mman.h>

#include <QRegularExpression>
#include <QStringList>

#include "logging/VyLog.h"
#include "platform/axi/CalvFpga.h"

PcieAxi::PcieAxi(Calvento::PlatformPaths const& paths) {
    fd = calv_open_fpga(&base, paths.axiDevice.c_str());
    if (fd < 0 && base == static_cast<unsigned int*>(MAP_FAILED)) {
        // The device opened but could not be mapped: the failed-mapping
        // value must never be dereferenced, so run as if there were no
        // device (reads give all ones, writes are dropped).
        base = nullptr;
    }

    tracingEnabled = isAxiTracingEnabled();
    if (!tracingEnabled) {
        return;
    }
    filterSubsystem = readIntEnvVar("TRACE_FILTER_SUBSYSTEM", -1, 0, ':');
    filterAddrLow = readIntEnvVar("TRACE_FILTER_ADDR", -1, 0, ':');
    filterAddrHigh = readIntEnvVar("TRACE_FILTER_ADDR", -1, 1, ':');
    skipFirst = readIntEnvVar("TRACE_FILTER_SKIP_FIRST", 0, 0, ':');
    traceSync = readIntEnvVar("TRACE_SYNC", 0, 0, ':') != 0;
}

PcieAxi::~PcieAxi() {
    calv_close_fpga(fd, base);
}

int PcieAxi::readIntEnvVar(char const* name, int defaultValue, int index, char separator) const {
    char const* text = std::getenv(name);
    if (text == nullptr) {
        return defaultValue;
    }
    QRegularExpression const splitter(QStringLiteral("(\\%1)").arg(QChar(separator)));
    QStringList const fields = QString::fromLocal8Bit(text).split(splitter);
    if (index < 0 || index >= fields.size()) {
        return defaultValue;
    }
    QString const& field = fields.at(index);
    bool ok = false;
    int const value =
        field.startsWith(QStringLiteral("0x")) ? field.mid(2).toInt(&ok, 16) : field.toInt(&ok, 10);
    return ok ? value : defaultValue;
}

bool PcieAxi::isAxiTracingEnabled() const {
    return readIntEnvVar("ENABLE_AXI_TRACING", 0, 0, ':') != 0;
}

bool PcieAxi::shouldPrintAxiTrace(unsigned int subsystem, unsigned int offset) {
    if (!tracingEnabled) {
        return false;
    }
    bool pass = false;
    if (filterSubsystem == -1 || static_cast<unsigned int>(filterSubsystem) == subsystem) {
        pass = accessCount > skipFirst;
    }
    if (filterAddrLow == -1) {
        return pass;
    }
    int const signedOffset = static_cast<int>(offset);
    if (filterAddrLow > signedOffset) {
        return false;
    }
    if (filterAddrHigh != -1 && signedOffset > filterAddrHigh) {
        return false;
    }
    return pass;
}

void PcieAxi::printAxiTraceMessage(QString message) {
    if (auto logger = Calvento::vyLogger()) {
        logger->error("{}", message.toStdString());
        if (traceSync) {
            // So that the last accesses before a hang or crash are on record.
            logger->flush();
        }
    }
}

bool PcieAxi::wordInsideWindow(unsigned int subsystem, unsigned int offset, long& wordIndex) {
    // Computed in 64 bits: in 32 bits sub-system 0x10000 would wrap onto
    // sub-system 0 and land on a real register.
    std::uint64_t const index =
        (static_cast<std::uint64_t>(subsystem) << 16) | (offset & kOffsetMask);
    if (index >= kWindowWords) {
        Calvento::vyLogError(
            "AXI access to subsystem {} offset 0x{:x} is outside the register window - refused",
            subsystem, offset);
        return false;
    }
    wordIndex = static_cast<long>(index);
    return true;
}

void PcieAxi::recordAccess(unsigned int subsystem, unsigned int offset, bool isRead) {
    accessHistory[accessHistoryPos % kAccessHistorySize] = AccessRecord{subsystem, offset, isRead};
    ++accessHistoryPos;
    ++accessCount;
}

unsigned int PcieAxi::axiRead(unsigned int subsystem, unsigned int offset) {
    abortOnBadAxiSubSystem(subsystem);
    long wordIndex = 0;
    if (base == nullptr || !wordInsideWindow(subsystem, offset, wordIndex)) {
        // What the bus gives for a word that nothing answers.
        return 0xFFFFFFFFU;
    }
    if (shouldPrintAxiTrace(subsystem, offset)) {
        printAxiTraceMessage(QStringLiteral("[%1]: axiRead(%2, 0x%3)")
                                 .arg(accessCount)
                                 .arg(subsystem)
                                 .arg(offset, 0, 16));
    }
    recordAccess(subsystem, offset, true);
    unsigned int value = 0;
    calv_read_fpga_reg(base, wordIndex, &value);
    return value;
}

void PcieAxi::axiWrite(unsigned int subsystem, unsigned int offset, unsigned long value) {
    abortOnBadAxiSubSystem(subsystem);
    long wordIndex = 0;
    if (base == nullptr || !wordInsideWindow(subsystem, offset, wordIndex)) {
        return;
    }
    if (shouldPrintAxiTrace(subsystem, offset)) {
        printAxiTraceMessage(QStringLiteral("[%1]: axiWrite(%2, 0x%3, 0x%4)")
                                 .arg(accessCount)
                                 .arg(subsystem)
                                 .arg(offset, 0, 16)
                                 .arg(value, 0, 16));
    }
    recordAccess(subsystem, offset, false);
    // Registers are 32 bits wide; on a 64-bit host the upper half of an
    // unsigned long has nowhere to go.
    calv_write_fpga_reg(base, wordIndex, static_cast<unsigned int>(value));
}

std::string PcieAxi::printAccessesToString() {
    std::ostringstream text;
    text << "Last few AXI accesses (newest first):\n";
    if (accessHistoryPos == 0) {
        text << "NONE\n";
        return text.str();
    }
    std::uint64_t const count =
        accessHistoryPos < kAccessHistorySize ? accessHistoryPos : kAccessHistorySize;
    for (std::uint64_t back = 1; back <= count; ++back) {
        AccessRecord const& record = accessHistory[(accessHistoryPos - back) % kAccessHistorySize];
        text << (record.isRead ? "AXI R> " : "AXI W> ") << "Subsystem: 0x" << std::hex
             << record.subsystem << " Register: 0x" << record.offset << std::dec << "\n";
    }
    return text.str();
}

void PcieAxi::printAccesses() {
    std::string const text = printAccessesToString();
    fputs(text.c_str(), stderr);
}

void PcieAxi::abortOnBadAxiSubSystem(unsigned int subsystem) const {
    if (subsystem != Calvento::kUnassignedAxiSubsystem) {
        return;
    }
    Calvento::vyLogError(
        "Attempting AXI access to unassigned subsystem - unable to continue - aborting");
    if (auto logger = Calvento::vyLogger()) {
        logger->flush();
    }
    // What led up to it, for the post-mortem.
    printAccesses();
    std::abort();
}
