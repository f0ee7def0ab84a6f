// The shape of a picture's pixels: so many wide for so many high.
// Threads: a plain value, its owner's.
#pragma once

#include <cstdint>

namespace quicktime {

struct PixelShape {
  std::uint32_t horizontal = 1;
  std::uint32_t vertical = 1;

  bool IsSquare() const { return horizontal == vertical; }
};

// Both standards number the same shapes first, from 1; beyond 5 the table is H.264's alone.
constexpr PixelShape kPixelShapes[] = {{1, 1},   {1, 1},    {12, 11}, {10, 11}, {16, 11}, {40, 33},
                                       {24, 11}, {20, 11},  {32, 11}, {80, 33}, {18, 11}, {15, 11},
                                       {64, 33}, {160, 99}, {4, 3},   {3, 2},   {2, 1}};

// What is stated as 0 is not known, and what nobody films in is none; both are taken for square.
constexpr PixelShape MakePixelShape(std::uint32_t horizontal, std::uint32_t vertical) {
  constexpr std::uint32_t kMost = 16;
  const bool isUsual = horizontal != 0 && vertical != 0 && horizontal / vertical < kMost &&
                       vertical / horizontal < kMost;
  return isUsual ? PixelShape{horizontal, vertical} : PixelShape{};
}

}  // namespace quicktime
