#pragma once

// Register blocks of the KM40 product's registration. This program never
// runs on a KM40; the classes complete the registry's shape.

#include <memory>

#include "platform/axi/AxiSubsystem.h"
#include "platform/bus/I2cSubsystem.h"
#include "platform/bus/SpiSubsystem.h"

class UniversalFrequencyTranslatorRenesis8A34041 : public I2cSubsystem {
public:
    using I2cSubsystem::I2cSubsystem;
};

class Km40SdiMachXo : public SpiSubsystem {
public:
    explicit Km40SdiMachXo(std::shared_ptr<SpiInterface> spi)
        : SpiSubsystem(SpiDeviceId::SdiMachXo, std::move(spi)) {}
};

class Km40EyeRegisterApi : public AxiSubsystem {
public:
    Km40EyeRegisterApi(unsigned int axiSubsystem, std::shared_ptr<AxiInterface> axi,
                       std::shared_ptr<Km40SdiMachXo> machXo)
        : AxiSubsystem(axiSubsystem, std::move(axi)), machXo_(std::move(machXo)) {}

    std::shared_ptr<Km40SdiMachXo> const& machXo() const { return machXo_; }

private:
    std::shared_ptr<Km40SdiMachXo> machXo_;
};

class Mac25GRegisterApi : public AxiSubsystem {
public:
    Mac25GRegisterApi(unsigned int axiSubsystem, std::shared_ptr<AxiInterface> axi, int port)
        : AxiSubsystem(axiSubsystem, std::move(axi)), port_(port) {}
    int port() const { return port_; }

private:
    int port_;
};

class Mac10GRegisterApi : public AxiSubsystem {
public:
    Mac10GRegisterApi(unsigned int axiSubsystem, std::shared_ptr<AxiInterface> axi, int port)
        : AxiSubsystem(axiSubsystem, std::move(axi)), port_(port) {}
    int port() const { return port_; }

private:
    int port_;
};

class PtpRegisterApi : public AxiSubsystem {
public:
    using AxiSubsystem::AxiSubsystem;
};
