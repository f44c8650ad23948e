#pragma once

// The self-test image's AES sample-rate-converter test block (AXI). It shares
// ownership of the four converters it exercises, in instance order 0 to 3.

#include <array>
#include <memory>

#include "platform/axi/AxiSubsystem.h"
#include "platform/registers/AesSrc4382RegisterApi.h"

class AesSrcTestRegisterApi : public AxiSubsystem {
public:
    using Converters = std::array<std::shared_ptr<AesSrc4382RegisterApi>, 4>;

    AesSrcTestRegisterApi(unsigned int axiSubsystem, std::shared_ptr<AxiInterface> axi,
                          Converters converters)
        : AxiSubsystem(axiSubsystem, std::move(axi)), converters_(std::move(converters)) {}

    Converters const& converters() const { return converters_; }

private:
    Converters converters_;
};
