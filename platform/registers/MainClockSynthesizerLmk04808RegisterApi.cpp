#include "platform/registers/MainClockSynthesizerLmk04808RegisterApi.h"

#include "logging/VyLog.h"

void VyMainClockSynthesizerLmk04808RegisterApi::setupClockSynthesizer() {
    Calvento::vyLogInfo("LMK04808 (Vy): keeping the clock configuration set at start-up");
}

void VylMainClockSynthesizerLmk04808RegisterApi::setupClockSynthesizer() {
    Calvento::vyLogInfo("LMK04808 (VyL): keeping the clock configuration set at start-up");
}
