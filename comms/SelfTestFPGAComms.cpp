#include "comms/SelfTestFPGAComms.h"

#include <algorithm>
#include <cmath>

#include "platform/axi/PcieAxi.h"
#include "platform/bus/I2cController.h"
#include "platform/bus/SpiController.h"
#include "platform/descriptor/PlatformDescriptorFactory.h"
#include "platform/registers/Clock1001SynthesizerSi5367cRegisterApi.h"
#include "platform/registers/MainClockSynthesizerLmk04808RegisterApi.h"
#include "platform/registers/MiscellaneousRegisterApi.h"
#include "platform/sdk/PlatformSdk.h"
#include "platform/sdk/PlatformSdkFactory.h"

namespace {

// The self-test image, "25G_Self_Test": the only one with the test tone.
constexpr unsigned int kSelfTestDesign = 11;

// Pitch index 0..48: four octaves of equal-tempered semitones above 256 Hz.
constexpr int kLowestPitch = 0;
constexpr int kHighestPitch = 48;
constexpr double kBaseFrequency = 256.0;
constexpr double kSemitone = 1.0594630943592953; // 2^(1/12)

// A square wave.
constexpr float kToneHighPercent = 50.0f;

} // namespace

SelfTestFPGAComms::SelfTestFPGAComms() : SelfTestFPGAComms(Calvento::PlatformPaths()) {}

SelfTestFPGAComms::SelfTestFPGAComms(Calvento::PlatformPaths const& paths) {
    valid = false;
    auto const descriptor = PlatformDescriptorFactory::createPlatformDescriptor(paths);
    if (!descriptor) {
        return;
    }
    auto const axi = std::make_shared<PcieAxi>(paths);
    auto const spi = std::make_shared<SpiController>(axi);
    auto const i2c = std::make_shared<I2cController>(descriptor, axi, paths);
    platformSdk = PlatformSdkFactory::create(descriptor, axi, i2c, spi);
    if (!platformSdk) {
        return;
    }
    misc = dynamic_cast<MiscellaneousRegisterApi*>(
        platformSdk->getSubsystem(SubsystemType::MISCELLANEOUS, 0).get());
    if (misc == nullptr) {
        return;
    }
    unsigned int const design = misc->getFirmwareVersion().getFirmwareDesign();

    // The audio clock: whichever synthesisers this platform has.
    if (auto const mainClock = std::dynamic_pointer_cast<MainClockSynthesizerLmk04808RegisterApi>(
            platformSdk->getSubsystem(SubsystemType::MAIN_CLOCK_SYNTHESIZER, 0))) {
        mainClock->setupClockSynthesizer();
    }
    if (auto const clock1001 = std::dynamic_pointer_cast<Clock1001SynthesizerSi5367cRegisterApi>(
            platformSdk->getSubsystem(SubsystemType::CLOCK_1001_SYNTHESIZER, 0))) {
        clock1001->setupClockSynthesizer();
    }

    valid = design == kSelfTestDesign;
}

SelfTestFPGAComms::~SelfTestFPGAComms() {
    misc = nullptr;
    platformSdk.reset();
}

void SelfTestFPGAComms::setVolume(int newVolume) {
    if (!valid) {
        return;
    }
    // The shaft encoder keeps the volume in 0..100; it is passed on as is.
    volume = newVolume;
    misc->setFrontPanelAudioVolume(newVolume);
}

void SelfTestFPGAComms::setPitch(int index) {
    if (!valid) {
        return;
    }
    pitch = std::clamp(index, kLowestPitch, kHighestPitch);
    misc->testPatternGeneratorFrequency(static_cast<unsigned long>(pitchToFrequency(pitch)),
                                        kToneHighPercent);
}

int SelfTestFPGAComms::pitchToFrequency(int index) {
    return static_cast<int>(kBaseFrequency * std::pow(kSemitone, index));
}
