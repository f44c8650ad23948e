#pragma once

// What the loaded FPGA image offers, decided from its firmware version.

#include "platform/registers/MiscellaneousRegisterApi.h"

class PlatformFeatures {
public:
    explicit PlatformFeatures(MiscellaneousRegisterApi::FirmwareVersion version)
        : version_(version) {}

    // Designs 2 ("Self_test") and 11 ("25G_Self_Test").
    bool isSelfTestFirmware() const {
        unsigned int const design = version_.getFirmwareDesign();
        return design == MiscellaneousRegisterApi::FW_DESIGN_SELF_TEST ||
               design == MiscellaneousRegisterApi::FW_DESIGN_25G_SELF_TEST;
    }
    // The memory-interface tester is built into the self-test images only.
    bool supportsMigTester() const { return isSelfTestFirmware(); }

    MiscellaneousRegisterApi::FirmwareVersion const& firmwareVersion() const { return version_; }

private:
    MiscellaneousRegisterApi::FirmwareVersion version_;
};
