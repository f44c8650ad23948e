#pragma once

// Board identification through strapping resistors on GPIO lines, read from
// the sysfs GPIO value files "<gpioRoot><line>/value".
//
// Group 0: baseboard id, lines 127..121 (7 bits)
// Group 1: mezzanine board id, lines 508..504 (5 bits)
// Group 2: front panel board id, lines 502..496 (7 bits)
// Group 3: power share board id, line 113 then 116..114 (4 bits)
//
// Each group is read once per process and cached; a failed read (any line
// missing) gives -1 and is tried again on the next call.

#include <string>

#include "platform/axi/PlatformPaths.h"

namespace Calvento {

inline constexpr int kBoardIdGroups = 4;

// The group's id from the real GPIO tree ("/sys/class/gpio/gpio"); -1 on a
// failed read or a group outside 0..3.
int read_board_id(int group);
// The same from another GPIO tree; each tree has its own cache.
int read_board_id(int group, std::string const& gpioRoot);

// Baseboard variant: 1 (VyL/VyP) for an id above 63, 2 when the id cannot be
// read, else 0 (Vy).
int get_baseboard_variant();
int get_baseboard_variant(std::string const& gpioRoot);

// Front panel variant: 2 (CV084) for an id above 4, else 1 (CV072).
int get_front_panel_variant(int id);

} // namespace Calvento
