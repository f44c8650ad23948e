#pragma once

#include "app/FrontPanelTestManager.h"

// Fills every empty member with the real thing: the curses terminal, the
// panel's link and input devices at the instrument's paths, the FPGA tone
// control, a wait on those devices and the production artifact repository.
void fillDefaultDevices(FrontPanelTestManager::Devices& devices);
