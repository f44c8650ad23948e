#pragma once

// Where the platform library finds the instrument's kernel interfaces. The
// defaults are the real nodes on the controller; tests point them at files
// of their own.

#include <string>

namespace Calvento {

struct PlatformPaths {
    std::string axiDevice = "/dev/xdma0_user";     // XDMA user BAR, memory-mapped
    std::string gpioRoot = "/sys/class/gpio/gpio"; // + "<n>/value" for each strap
    std::string pcieProcFile = "/proc/calv_pcie";  // maker's PCIe driver
    std::string i2cDevicePrefix = "/dev/i2c-";     // + bus number
};

} // namespace Calvento
