#include "configuration_check/finding.h"

#include <cctype>
#include <cstddef>

namespace tvx::tool {

std::string Fill(const char* text, const Facts& facts) {
  std::string filled;
  for (const char* at = text; *at != '\0';) {
    if (*at != '$') {
      filled += *at++;
      continue;
    }
    const char* word = ++at;
    while (std::isalpha(static_cast<unsigned char>(*at)) != 0) ++at;
    const Facts& fact = facts.at(std::string(word, at));
    filled += fact.is_string() ? fact.get_ref<const std::string&>() : fact.dump();
  }
  return filled;
}

}  // namespace tvx::tool
