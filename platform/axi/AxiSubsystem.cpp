#include "platform/axi/AxiSubsystem.h"

#include <utility>

AxiSubsystem::AxiSubsystem(unsigned int subsystemNumber, std::shared_ptr<AxiInterface> axi)
    : subsystem(subsystemNumber), sharedAxi(std::move(axi)) {}

AxiSubsystem::AxiSubsystem(unsigned int subsystemNumber, AxiInterface* axi)
    : subsystem(subsystemNumber), rawAxi(axi) {}

AxiSubsystem::~AxiSubsystem() = default;

AxiInterface* AxiSubsystem::target() const {
    return sharedAxi ? sharedAxi.get() : rawAxi;
}

void AxiSubsystem::axiWrite(unsigned int offset, unsigned int value) const {
    if (AxiInterface* axi = target()) {
        axi->axiWrite(subsystem, offset, value);
    }
}

unsigned int AxiSubsystem::axiRead(unsigned int offset) const {
    AxiInterface* axi = target();
    return axi != nullptr ? axi->axiRead(subsystem, offset) : 0;
}
