#pragma once

// The eight colours the panel's LEDs are driven in, indexed by the current LED
// colour (0..7) that the shaft encoder steps through: the name the operator
// reads in the encoder test, the 24-bit RGB value sent to the panel, and the
// two nine-character forms of the debug display's colour row.

#include <array>
#include <cstdint>

struct LedColour {
    char const* name;
    int32_t rgb;
    char const* label;
    char const* currentLabel;
};

inline constexpr std::array<LedColour, 8> kLedColours = {{
    {"WHITE", 0xFFFFFF, "  white  ", "[ WHITE ]"},
    {"YELLOW", 0xFFFF00, " yellow  ", "[YELLOW ]"},
    {"CYAN", 0x00FFFF, "  cyan   ", "[ CYAN  ]"},
    {"GREEN", 0x00FF00, "  green  ", "[ GREEN ]"},
    {"MAGENTA", 0xFF00FF, " magenta ", "[MAGENTA]"},
    {"RED", 0xFF0000, "   red   ", "[  RED  ]"},
    {"BLUE", 0x0000FF, "  blue   ", "[ BLUE  ]"},
    {"BLACK", 0x000000, "  black  ", "[ BLACK ]"},
}};

// Any value names a colour: only its low three bits count.
inline LedColour const& ledColour(int colour) {
    return kLedColours[static_cast<std::size_t>(colour) & (kLedColours.size() - 1)];
}
