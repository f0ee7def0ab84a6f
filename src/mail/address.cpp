#include "mail/address.h"

#include <boost/regex.hpp>
#include <exception>

#include "base/immortal.h"

namespace tvx {
namespace {

struct Pattern {
  boost::regex address{"[a-zA-Z0-9.!#$%&'*+/=?^_`{}|~-]+@[a-zA-Z0-9.-]+"};
};

}  // namespace

bool ValidateAddress(std::string& text) {
  try {
    static const Immortal<Pattern> pattern;
    boost::smatch match;
    if (!boost::regex_search(text, match, pattern.value.address)) return false;
    text = std::string(match[0].first, match[0].second);
    return true;
  } catch (const std::exception&) {
    return false;  // too complex a text is no address either
  }
}

}  // namespace tvx
