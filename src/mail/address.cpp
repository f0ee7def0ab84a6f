#include "mail/address.h"

#include <boost/regex.hpp>
#include <exception>

namespace tvx {

bool ValidateAddress(std::string& text) {
  try {
    // Made anew each time: a static one would be destroyed under the worker when a host exits, and
    // one that is not would be lost with each unloaded library.
    const boost::regex address("[a-zA-Z0-9.!#$%&'*+/=?^_`{}|~-]+@[a-zA-Z0-9.-]+");
    boost::smatch match;
    if (!boost::regex_search(text, match, address)) return false;
    text = std::string(match[0].first, match[0].second);
    return true;
  } catch (const std::exception&) {
    return false;  // too complex a text is no address either
  }
}

}  // namespace tvx
