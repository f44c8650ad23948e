#include "platform/descriptor/PlatformDescriptorFactory.h"

#include "platform/descriptor/BoardId.h"
#include "platform/descriptor/VyPlatformAbstraction.h"
#include "platform/descriptor/VyVersionInfo.h"

namespace {

// A VyL/VyP baseboard straps an id of 64 or more; a CV084 front panel one of
// 5 or more.
constexpr int kFirstVylBaseboardId = 64;
constexpr int kFirstCv084FrontPanelId = 5;

void addBoard(PlatformDescriptor& descriptor, BoardDescriptor::BoardId id, unsigned int variant,
              int strapId) {
    // The straps carry no separate revision on these boards.
    descriptor.addBoard(std::make_shared<BoardDescriptor const>(
        id, variant, static_cast<unsigned int>(strapId), 0));
}

} // namespace

bool PlatformDescriptorFactory::getDeviceType(Calvento::Vy::Device& device,
                                              Calvento::PlatformPaths const& paths) {
    device = Calvento::getVersionInfo(paths).device() >= kFirstVylBaseboardId
                 ? Calvento::Vy::DEVICE_VYL_VYP
                 : Calvento::Vy::DEVICE_VY;
    return true;
}

std::shared_ptr<PlatformDescriptor>
PlatformDescriptorFactory::createPlatformDescriptor(Calvento::PlatformPaths const& paths) {
    Calvento::Vy::Device device = Calvento::Vy::DEVICE_VY;
    if (!getDeviceType(device, paths)) {
        return nullptr;
    }
    auto descriptor = std::make_shared<PlatformDescriptor>(device);
    switch (device) {
    case Calvento::Vy::DEVICE_VY:
    case Calvento::Vy::DEVICE_VYL_VYP:
        addVyBoards(descriptor, paths);
        break;
    case Calvento::Vy::DEVICE_KM40:
        add40KmBoards(descriptor, paths);
        break;
    }
    return descriptor;
}

void PlatformDescriptorFactory::addVyBoards(std::shared_ptr<PlatformDescriptor> descriptor,
                                            Calvento::PlatformPaths const& paths) {
    if (!descriptor) {
        return;
    }
    VyPlatformAbstraction platform(paths);

    int const baseboard = platform.getBoardId(0);
    if (baseboard >= 0) {
        addBoard(*descriptor,
                 baseboard >= kFirstVylBaseboardId ? BoardDescriptor::CV079_VYL_VYP_BASEBOARD
                                                   : BoardDescriptor::CV069_VY_BASEBOARD,
                 static_cast<unsigned int>(Calvento::get_baseboard_variant(paths.gpioRoot)),
                 baseboard);
    }
    int const mezzanine = platform.getBoardId(1);
    if (mezzanine >= 0) {
        addBoard(*descriptor, BoardDescriptor::CV070_MEZZANINE, 0, mezzanine);
    }
    int const frontPanel = platform.getBoardId(2);
    if (frontPanel >= 0) {
        addBoard(*descriptor,
                 frontPanel >= kFirstCv084FrontPanelId ? BoardDescriptor::CV084_VYP_FRONT_PANEL
                                                       : BoardDescriptor::CV072_VY_VYL_FRONT_PANEL,
                 static_cast<unsigned int>(Calvento::get_front_panel_variant(frontPanel)),
                 frontPanel);
    }
    int const powerShare = platform.getBoardId(3);
    if (powerShare >= 0) {
        addBoard(*descriptor, BoardDescriptor::CV098_VYP_POWER_SHARE, 0, powerShare);
    }
}

void PlatformDescriptorFactory::add40KmBoards(std::shared_ptr<PlatformDescriptor> descriptor,
                                              Calvento::PlatformPaths const& paths) {
    if (!descriptor) {
        return;
    }
    VyPlatformAbstraction platform(paths);

    // A KM40 uses the same four strap groups: the CPU carrier answers on the
    // baseboard group, the SDI I/O board on the mezzanine group, its front
    // panel on the front panel group and the miscellaneous I/O board on the
    // fourth. The FPGA board and the backplane carry no straps of their own;
    // they are part of every chassis whose carrier answers.
    int const carrier = platform.getBoardId(0);
    if (carrier >= 0) {
        addBoard(*descriptor, BoardDescriptor::CV087_40KM_CPU_CARRIER, 0, carrier);
        addBoard(*descriptor, BoardDescriptor::CV088_40KM_FPGA, 0, carrier);
        addBoard(*descriptor, BoardDescriptor::CV091_40KM_BACKPLANE, 0, carrier);
    }
    int const sdiIo = platform.getBoardId(1);
    if (sdiIo >= 0) {
        addBoard(*descriptor, BoardDescriptor::CV089_40KM_SDI_IO, 0, sdiIo);
    }
    int const frontPanel = platform.getBoardId(2);
    if (frontPanel >= 0) {
        addBoard(*descriptor, BoardDescriptor::CV090_40KM_FRONT_PANEL, 0, frontPanel);
    }
    int const miscIo = platform.getBoardId(3);
    if (miscIo >= 0) {
        addBoard(*descriptor, BoardDescriptor::CV094_40KM_MISC_IO, 0, miscIo);
    }
}
