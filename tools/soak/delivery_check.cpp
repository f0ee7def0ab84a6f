#include "soak/delivery_check.h"

#include <cstdlib>
#include <fstream>
#include <unordered_map>

namespace tvx::soak {
namespace {

constexpr std::size_t kFaultsKept = 10;

std::unordered_map<std::string, std::uint64_t> CountLines(const std::string& path,
                                                          DeliveryCheck& check) {
  std::unordered_map<std::string, std::uint64_t> counts;
  std::ifstream file(path);
  if (!file) check.faults.push_back("cannot read " + path);
  for (std::string line; std::getline(file, line);) {
    ++check.received;
    if (++counts[line] > 1) ++check.twice;
  }
  return counts;
}

}  // namespace

DeliveryCheck CheckDeliveries(const std::string& fates, const std::string& received) {
  DeliveryCheck check;
  auto counts = CountLines(received, check);
  const auto addFault = [&check](const std::string& text) {
    if (check.faults.size() < kFaultsKept) check.faults.push_back(text);
  };
  std::ifstream file(fates);
  if (!file) check.faults.push_back("cannot read " + fates);
  for (std::string line; std::getline(file, line);) {
    const std::size_t first = line.find(',');
    const std::size_t last = line.rfind(',');
    if (first == last) continue;
    const std::string subject = line.substr(0, first);
    const std::uint64_t mailed = line.compare(first + 1, 6, "mailed") == 0 ? 1 : 0;
    const std::uint64_t uncertain = std::strtoull(line.c_str() + last + 1, nullptr, 10);
    const std::uint64_t count = counts[subject];
    counts.erase(subject);
    if (count < mailed) addFault("the server has not received " + line);
    if (count > mailed + uncertain) {
      addFault("the server has received " + std::to_string(count) + " times: " + line);
    }
  }
  for (const auto& [subject, count] : counts) {
    addFault("the server has received what no event has asked for: " + subject);
  }
  return check;
}

}  // namespace tvx::soak
