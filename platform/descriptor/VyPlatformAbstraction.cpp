#include "platform/descriptor/VyPlatformAbstraction.h"

#include <stdexcept>
#include <string>

#include "platform/descriptor/BoardId.h"

namespace {

// One unsigned field of the driver's record: "0x" means hexadecimal.
bool parseField(std::string const& text, unsigned int& value) {
    if (text.empty()) {
        return false;
    }
    bool const hex = text.rfind("0x", 0) == 0;
    std::string const digits = hex ? text.substr(2) : text;
    if (digits.empty()) {
        return false;
    }
    try {
        std::size_t used = 0;
        // 64 bits on every target, so that an over-long number is seen as such.
        unsigned long long const parsed = std::stoull(digits, &used, hex ? 16 : 10);
        if (used != digits.size() || digits[0] == '-' || digits[0] == '+' ||
            parsed > 0xFFFFFFFFULL) {
            return false;
        }
        value = static_cast<unsigned int>(parsed);
        return true;
    } catch (std::exception const&) {
        return false;
    }
}

} // namespace

VyPlatformAbstraction::VyPlatformAbstraction(Calvento::PlatformPaths const& platformPaths)
    : paths(platformPaths), pcieProc(platformPaths.pcieProcFile) {}

int VyPlatformAbstraction::getBoardId(boardIdentity i) {
    if (i < 0 || i > 3) {
        return -1;
    }
    return Calvento::read_board_id(i, paths.gpioRoot);
}

bool VyPlatformAbstraction::hasBoard(boardIdentity i) {
    return getBoardId(i) >= 0;
}

bool VyPlatformAbstraction::getFPGABuildInfo(unsigned int& fpgaId, unsigned int& major,
                                             unsigned int& minor, unsigned int& patch,
                                             unsigned int& build) {
    if (!pcieProc.is_open()) {
        return false;
    }
    // The driver regenerates the record on every read from the start.
    pcieProc.clear();
    pcieProc.seekg(0);
    unsigned int fields[5] = {};
    for (unsigned int& field : fields) {
        std::string token;
        if (!(pcieProc >> token) || !parseField(token, field)) {
            return false;
        }
    }
    fpgaId = fields[0];
    major = fields[1];
    minor = fields[2];
    patch = fields[3];
    build = fields[4];
    return true;
}

bool VyPlatformAbstraction::isPowerShareFitted() {
    return hasBoard(3);
}
