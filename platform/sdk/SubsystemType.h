#pragma once

// Kinds of register block, the first half of the registry key and the index
// into the products' AXI sub-system tables. Values without a name here are
// used by number.

#include <cstdint>

enum class SubsystemType : std::int32_t {
    AES_SRC_TEST = 0,
    ANCILLARY_INSERTION = 1,
    ANCILLARY_PROCESSING = 2,
    AUDIO_2110_30 = 3,
    AUDIO_PROCESSING = 4,
    AUDIO_SELF_TEST_TONE = 5,
    BOUNCING_BOX_GENERATOR = 6,
    CIRCULAR_BUFFER = 7,
    DECIMATED_PICTURE = 8,
    VPSS = 9,
    EYE = 10,
    EYE_JITTER_ADC_SELF_TEST = 11,
    FRONT_HDMI = 12,
    SDI_GT_MANAGER = 13,
    GTH_PHY = 14,
    GTY_PHY_0 = 15,
    GTY_PHY_1 = 16,
    HDMI2_PHY = 17,
    HDMI2_SS = 18,
    IP_FILTER = 19,
    IP_STATISTICS = 20,
    JITTER = 21,
    JITTER_INSERTION_ANALYSIS = 22,
    LAYERING_ENGINE = 23,
    LAYERING_ENGINE_OUTPUT_MUX = 24,
    LVDS_BRIDGE = 25,
    MIG_0 = 26,
    MIG_1 = 27,
    MISCELLANEOUS = 28,
    MEDIA_IP_TX = 29,
    MAC_25G = 30,
    REF_ADC = 33,
    REFERENCE_LOCKING = 34,
    REFERENCE_OUT = 35,
    SDI_PHY = 36,
    STRESS_TEST = 37,
    SYSTEM_INTERRUPT = 38,
    TEST_WFM_GENERATOR = 39,
    MAC_10G = 40,
    TWO_CHANNEL_ETHERNET_SYSTEM = 42,
    VECTOR_CIE = 43,
    VIDEO_2110_40_MEASUREMENT = 44,
    VIDEO_IP = 45,
    WAVEFORMS_ENHANCED = 46,
    PTP = 47,
    AES_SRC_4382 = 49,
    CLOCK_1001_SYNTHESIZER = 50,
    FRONT_PANEL_DAC = 55,
    TFT_LCD = 56,
    SDI_MACHXO = 58,
    SDI_DRIVER = 62,
    SDI_RECLOCKER = 63,
    SFP = 64,
    MAIN_CLOCK_SYNTHESIZER = 73,
};

inline constexpr std::int32_t toNumber(SubsystemType type) {
    return static_cast<std::int32_t>(type);
}
