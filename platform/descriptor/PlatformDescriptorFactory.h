#pragma once

// Builds the start-up PlatformDescriptor: the instrument kind from the main
// board's id, then one BoardDescriptor per board whose straps read.

#include <memory>

#include "platform/axi/PlatformPaths.h"
#include "platform/descriptor/PlatformDescriptor.h"

class PlatformDescriptorFactory {
public:
    // Kind 1 (VyL/VyP) when the main board id is above 63, else 0 (Vy). Never
    // produces 2 (KM40). Always true.
    static bool getDeviceType(Calvento::Vy::Device& device,
                              Calvento::PlatformPaths const& paths = Calvento::PlatformPaths());

    // Empty only when the device kind cannot be found.
    static std::shared_ptr<PlatformDescriptor>
    createPlatformDescriptor(Calvento::PlatformPaths const& paths = Calvento::PlatformPaths());

    // Adds the Vy-family boards whose straps read: baseboard (1 or 2),
    // mezzanine (3), front panel (4 or 5), power share (6).
    static void addVyBoards(std::shared_ptr<PlatformDescriptor> descriptor,
                            Calvento::PlatformPaths const& paths = Calvento::PlatformPaths());
    // Adds the KM40 boards (7..12) whose straps read.
    static void add40KmBoards(std::shared_ptr<PlatformDescriptor> descriptor,
                              Calvento::PlatformPaths const& paths = Calvento::PlatformPaths());
};
