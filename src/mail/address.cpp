#include "mail/address.h"

#include <algorithm>
#include <string_view>

namespace tvx {
namespace {

// What may stand before the "@"; the beginning of it may stand behind it.
constexpr std::string_view kLocalPart =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-"
    "!#$%&'*+/=?^_`{}|~";
constexpr std::string_view kDomain = kLocalPart.substr(0, 64);

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

}  // namespace tvx
