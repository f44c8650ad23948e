#pragma once

// Root of every register block, whatever bus it sits on, so that the
// subsystem registry can hold all blocks in one map.

class GenericSubsystem {
public:
    virtual ~GenericSubsystem() = default;

protected:
    GenericSubsystem() = default;
    GenericSubsystem(GenericSubsystem const&) = default;
    GenericSubsystem& operator=(GenericSubsystem const&) = default;
};
