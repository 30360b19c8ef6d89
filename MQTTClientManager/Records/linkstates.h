#pragma once

#include <array>

// Positions in tag memory of the link states of the two Ethernet ports: one byte each, 1 means that the link is up.
inline constexpr std::array<unsigned int, 2> LinkStatePositions{44, 47};
