// Zoom-to-focus curves of the lenses: the focus position for each zoom position.
//
// Positions are motor steps from the zero end of each motor. A table has one entry every
// TRACKING_SPACING zoom steps.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

struct ZfEntry {
  int32_t zoom;
  int32_t focus;
};

constexpr int32_t TRACKING_SPACING = 50;

inline constexpr std::array<ZfEntry, 48> ZFTABLE_KESTREL = {{
    {0, 140},     {50, 135},    {100, 125},   {150, 125},   {200, 115},   {250, 110},
    {300, 100},   {350, 95},    {400, 95},    {450, 90},    {500, 95},    {550, 95},
    {600, 100},   {650, 100},   {700, 110},   {750, 120},   {800, 130},   {850, 140},
    {900, 150},   {950, 160},   {1000, 180},  {1050, 200},  {1100, 220},  {1150, 240},
    {1200, 265},  {1250, 300},  {1300, 325},  {1350, 360},  {1400, 400},  {1450, 440},
    {1500, 490},  {1550, 545},  {1600, 595},  {1650, 655},  {1700, 725},  {1750, 790},
    {1800, 870},  {1850, 950},  {1900, 1045}, {1950, 1145}, {2000, 1255}, {2050, 1370},
    {2100, 1500}, {2150, 1635}, {2200, 1795}, {2250, 1975}, {2300, 2160}, {2350, 2320},
}};

inline constexpr std::array<ZfEntry, 28> ZFTABLE_HERON = {{
    {0, 200},     {50, 200},    {100, 210},   {150, 230},   {200, 240},   {250, 260},
    {300, 280},   {350, 310},   {400, 340},   {450, 370},   {500, 405},   {550, 445},
    {600, 490},   {650, 545},   {700, 605},   {750, 665},   {800, 740},   {850, 825},
    {900, 915},   {950, 1010},  {1000, 1120}, {1050, 1245}, {1100, 1375}, {1150, 1515},
    {1200, 1680}, {1250, 1865}, {1300, 2065}, {1350, 2265},
}};

inline constexpr std::array<ZfEntry, 28> ZFTABLE_OSPREY = {{
    {0, 160},     {50, 160},    {100, 170},   {150, 180},   {200, 190},   {250, 210},
    {300, 220},   {350, 240},   {400, 270},   {450, 300},   {500, 330},   {550, 370},
    {600, 410},   {650, 450},   {700, 510},   {750, 570},   {800, 640},   {850, 710},
    {900, 800},   {950, 890},   {1000, 990},  {1050, 1090}, {1100, 1220}, {1150, 1360},
    {1200, 1500}, {1250, 1660}, {1300, 1850}, {1350, 2050},
}};

// Returns true if the entries are at 0, one spacing, two spacings and so on.
constexpr bool IsEvenlySpaced(std::span<const ZfEntry> table) {
  for (size_t i = 0; i < table.size(); ++i) {
    if (table[i].zoom != TRACKING_SPACING * static_cast<int32_t>(i)) return false;
  }
  return true;
}
static_assert(IsEvenlySpaced(ZFTABLE_KESTREL));
static_assert(IsEvenlySpaced(ZFTABLE_HERON));
static_assert(IsEvenlySpaced(ZFTABLE_OSPREY));
