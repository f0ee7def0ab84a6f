#include "mail/address.h"

#include <boost/regex.hpp>
#include <exception>

namespace tvx {

bool ValidateAddress(std::string& text) {
  try {
    const boost::regex pattern("[a-zA-Z0-9.!#$%&'*+/=?^_`{}|~-]+@[a-zA-Z0-9.-]+");
    boost::smatch match;
    if (!boost::regex_search(text, match, pattern)) return false;
    text = std::string(match[0].first, match[0].second);
    return true;
  } catch (const std::exception&) {
    return false;  // too complex a text is no address either
  }
}

}  // namespace tvx
