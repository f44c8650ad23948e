#pragma once

class FrontPanelTestManager;

// Adds the CV084 front panel's fixed test plan, in order: the shaft encoder
// colour test, the "Button Tests" group (17 buttons and the LED verdict), the
// headphone jack detection and the two audio output tests. Without the FPGA
// self-test image the audio tests cannot run and are added as FailTests.
void addFrontPanelTestPlan(FrontPanelTestManager& manager, bool selfTestImageLoaded);
