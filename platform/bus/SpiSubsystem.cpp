#include "platform/bus/SpiSubsystem.h"

#include <utility>

SpiSubsystem::SpiSubsystem(SpiDeviceId device, std::shared_ptr<SpiInterface> spi)
    : device_(device), spi_(std::move(spi)) {}

SpiSubsystem::~SpiSubsystem() = default;

bool SpiSubsystem::spiWriteWord(unsigned int value, SpiWordSizeBits size) {
    return spi_ && spi_->spiWriteWord(device_, value, size);
}

unsigned int SpiSubsystem::spiReadWord(SpiWordSizeBits size) {
    return spi_ ? spi_->spiReadWord(device_, size) : 0;
}

unsigned int SpiSubsystem::spiTransceiveWord(unsigned int value, SpiWordSizeBits size) {
    return spi_ ? spi_->spiTransceiveWord(device_, value, size) : 0;
}
