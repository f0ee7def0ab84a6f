// faults ROAD              every fault on the road
// faults ROAD KIND NUMBER  one fault (KIND 0 to 4: allocation, write, open, rename, removal)
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "faults/sweep.h"

int main(int argc, char** argv) {
  using tvx::faults::Road;
  const std::map<std::string, Road> roads = {
      {"plain", Road::Plain}, {"video", Road::Video}, {"retry", Road::Retry}, {"end", Road::End}};
  const auto road = roads.find(argc > 1 ? argv[1] : "");
  if (road == roads.end() || (argc != 2 && argc != 4)) {
    std::fputs("usage: faults plain|video|retry|end [KIND NUMBER]\n", stderr);
    return 2;
  }
  if (argc == 2) return tvx::faults::SweepRoad(road->second, road->first) ? 0 : 1;
  const auto kind = static_cast<tvx::faults::Kind>(std::strtol(argv[2], nullptr, 10));
  const auto n = static_cast<unsigned>(std::strtol(argv[3], nullptr, 10));
  return tvx::faults::TryOne(road->second, kind, n) ? 0 : 1;
}
