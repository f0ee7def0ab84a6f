#include "mail/address.h"

#include <unistd.h>

#include <algorithm>
#include <string_view>

namespace tvx {
namespace {

// What may stand before the "@"; the beginning of it may stand behind it.
constexpr std::string_view kLocalPart =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-"
    "!#$%&'*+/=?^_`{}|~";
constexpr std::string_view kDomain = kLocalPart.substr(0, 64);

constexpr std::size_t kLongestName = 255;

bool IsHostName(std::string_view text) {
  if (text.size() < 2 || text.size() > kLongestName) return false;
  if (text.front() == '[' && text.back() == ']') {
    return text.find_first_not_of("0123456789abcdefABCDEFIPv:.", 1) == text.size() - 1;
  }
  return text.find_first_not_of(kDomain) == std::string_view::npos && text.front() != '.' &&
         text.back() != '.' && text.find("..") == std::string_view::npos;
}

}  // namespace

bool ValidateAddress(std::string& text) {
  for (std::size_t at = text.find('@'); at != std::string::npos; at = text.find('@', at + 1)) {
    const std::size_t begin = at == 0 ? 0 : text.find_last_not_of(kLocalPart, at - 1) + 1;
    const std::size_t end = std::min(text.find_first_not_of(kDomain, at + 1), text.size());
    if (begin == at || end == at + 1) continue;
    text.erase(end);
    text.erase(0, begin);
    return true;
  }
  return false;
}

std::string HelloName(const std::string& configured, const std::string& from) {
  if (IsHostName(configured)) return configured;
  char machine[256] = {};
  ::gethostname(machine, sizeof(machine) - 1);
  const std::string name = IsHostName(machine) ? machine : "localhost";
  const std::string domain = from.substr(from.find('@') + 1);
  const bool isWhole = name.find('.') != std::string::npos;
  return isWhole || !IsHostName(domain) ? name : name + "." + domain;
}

}  // namespace tvx
