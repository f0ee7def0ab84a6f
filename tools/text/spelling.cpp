#include "text/spelling.h"

#include <algorithm>
#include <cctype>
#include <cstddef>

namespace tvx::tool {
namespace {

constexpr std::size_t kLongest = 64;  // nobody's slip; and what is compared grows with the square

bool IsSame(char a, char b) {
  return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

// The least number of slips between the two (optimal string alignment).
std::size_t Slips(const std::string& a, const std::string& b) {
  std::vector<std::vector<std::size_t>> slips(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        slips[i][j] = i + j;
        continue;
      }
      slips[i][j] = std::min({slips[i - 1][j] + 1, slips[i][j - 1] + 1,
                              slips[i - 1][j - 1] + (IsSame(a[i - 1], b[j - 1]) ? 0 : 1)});
      if (i > 1 && j > 1 && IsSame(a[i - 1], b[j - 2]) && IsSame(a[i - 2], b[j - 1])) {
        slips[i][j] = std::min(slips[i][j], slips[i - 2][j - 2] + 1);
      }
    }
  }
  return slips[a.size()][b.size()];
}

}  // namespace

std::string NearestName(const std::string& word, const std::vector<std::string>& names) {
  if (word.size() > kLongest || std::count(names.begin(), names.end(), word) != 0) return {};
  std::size_t least = word.size() > 4 ? 3 : 2;
  std::string nearest;
  for (const std::string& name : names) {
    const std::size_t slips = Slips(word, name);
    if (slips >= least) continue;
    least = slips;
    nearest = name;
  }
  return nearest;
}

}  // namespace tvx::tool
