#pragma once

// Base of every FPGA register block: binds one AXI sub-system number to an
// AxiInterface, so that a block only ever passes word offsets.

#include <memory>

#include "platform/axi/AxiInterface.h"
#include "platform/axi/GenericSubsystem.h"

class AxiSubsystem : public GenericSubsystem {
public:
    // Shares ownership of the interface (the registry's way).
    AxiSubsystem(unsigned int subsystem, std::shared_ptr<AxiInterface> axi);
    // Borrows the interface, which must outlive the block.
    AxiSubsystem(unsigned int subsystem, AxiInterface* axi);
    ~AxiSubsystem() override;

    // Forward to the interface with this block's sub-system number. With no
    // interface at all a read gives 0 and a write is dropped.
    void axiWrite(unsigned int offset, unsigned int value) const;
    unsigned int axiRead(unsigned int offset) const;

    unsigned int getSubsystem() const { return subsystem; }

protected:
    unsigned int subsystem;
    AxiInterface* rawAxi = nullptr;
    std::shared_ptr<AxiInterface> sharedAxi;

private:
    AxiInterface* target() const;
};
