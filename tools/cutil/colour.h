// Colours, for people at a terminal only.
#pragma once

#include "cutil.h"

namespace cutil
{

inline constexpr char red[] = "\033[31m";
inline constexpr char yellow[] = "\033[33m";
inline constexpr char faint[] = "\033[2m";
inline constexpr char plain[] = "\033[m";

/// An option of the commands that have colours.
inline constexpr Option colorOption = {'C', "color", "WHEN",
                                       "auto, always or never; auto, unless told: on a terminal, where the\n"
                                       "environment has no NO_COLOR"};

/// Whether the standard output is to be coloured. @return #done, or another status and the reason is told
[[nodiscard]] int readColour(const Command& command, const Arguments& arguments, bool& wanted);

} // namespace cutil
