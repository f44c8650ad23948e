#pragma once

// The FPGA's AXI user register space over PCIe, through the XDMA driver's
// memory-mappable user device. Word index = (subsystem << 16) | (offset &
// 0xFFFF), so only the low 16 bits of an offset count and sub-systems 0..31
// fit the 8 MiB window. An access beyond the window is refused with a log
// line (reads give 0xFFFFFFFF) rather than reaching memory past the mapping.
//
// Every access is remembered in a small class-wide ring for post-mortem
// dumps, and can be traced to "VYLOG" under control of the environment
// variables ENABLE_AXI_TRACING, TRACE_FILTER_SUBSYSTEM, TRACE_FILTER_ADDR
// (low[:high]), TRACE_FILTER_SKIP_FIRST and TRACE_SYNC, read once when the
// object is built. An access to sub-system 99 logs and aborts.
//
// When the device cannot be opened the object still works: reads give
// 0xFFFFFFFF and writes are dropped.

#include <cstdint>
#include <string>

#include <QString>

#include "platform/axi/AxiInterface.h"
#include "platform/axi/CalvFpga.h"
#include "platform/axi/PlatformPaths.h"

class PcieAxi : public AxiInterface {
public:
    struct AccessRecord {
        std::uint32_t subsystem;
        std::uint32_t offset;
        bool isRead;
    };
    static constexpr unsigned int kAccessHistorySize = 8;

    // Class-wide: every access made through any PcieAxi. Record n lives in
    // slot n % kAccessHistorySize.
    static inline std::uint64_t accessHistoryPos = 0;
    static inline AccessRecord accessHistory[kAccessHistorySize] = {};

    // Opens and maps paths.axiDevice (default "/dev/xdma0_user").
    explicit PcieAxi(Calvento::PlatformPaths const& paths = Calvento::PlatformPaths());
    ~PcieAxi() override;
    PcieAxi(PcieAxi const&) = delete;
    PcieAxi& operator=(PcieAxi const&) = delete;

    void axiWrite(unsigned int subsystem, unsigned int offset, unsigned long value) override;
    unsigned int axiRead(unsigned int subsystem, unsigned int offset) override;

    // Field `index` of environment variable `name` split at `separator`;
    // "0x" prefix means hexadecimal. defaultValue when unset, too few fields
    // or not a number.
    int readIntEnvVar(char const* name, int defaultValue, int index, char separator) const;
    bool isAxiTracingEnabled() const;
    bool shouldPrintAxiTrace(unsigned int subsystem, unsigned int offset);
    // One line at error level on "VYLOG"; flushed when TRACE_SYNC is set.
    void printAxiTraceMessage(QString message);

    // "Last few AXI accesses (newest first):" and up to 8 lines, or "NONE".
    static std::string printAccessesToString();
    // The same text to standard error.
    static void printAccesses();

    // Logs and abort()s for sub-system 99; any other number passes.
    void abortOnBadAxiSubSystem(unsigned int subsystem) const;

    // Whether the register window is mapped.
    bool isMapped() const { return base != nullptr; }
    // Accesses made through this object.
    int getAccessCount() const { return accessCount; }
    bool isTracingEnabled() const { return tracingEnabled; }
    int getFilterSubsystem() const { return filterSubsystem; }
    int getFilterAddrLow() const { return filterAddrLow; }
    int getFilterAddrHigh() const { return filterAddrHigh; }
    int getSkipFirst() const { return skipFirst; }
    bool isTraceSync() const { return traceSync; }

private:
    static constexpr unsigned int kOffsetMask = 0xFFFFU;
    static constexpr std::uint64_t kWindowWords =
        Calvento::kCalvFpgaMapSize / sizeof(std::uint32_t);

    // The word index of (subsystem, offset) when it lies inside the mapped
    // window; otherwise logs the refusal and returns false.
    static bool wordInsideWindow(unsigned int subsystem, unsigned int offset, long& wordIndex);
    void recordAccess(unsigned int subsystem, unsigned int offset, bool isRead);

    std::int32_t reservedHandle = -1; // reserved for a second handle; always -1
    std::int32_t fd = -1;
    unsigned int* base = nullptr;
    bool tracingEnabled = false;
    std::int32_t filterSubsystem = -1;
    std::int32_t filterAddrLow = -1;
    std::int32_t filterAddrHigh = -1;
    std::int32_t skipFirst = -1;
    bool traceSync = false;
    std::int32_t accessCount = 0;
};
