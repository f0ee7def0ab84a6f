// What must not leave the machine with a bug report: passwords and tokens.
//
// They are found in two ways. Values are hidden where a name says what they are: password, passwd,
// secret, token, cookie or authorization at the end of a name in front of "=" or ":", and the
// password of a URL. And each such value that was found in a document of the configuration is hidden
// wherever else it turns up, as it is and as XML, curl and URLs write it. Only in documents are
// values taken for secrets for good: in a log line "token: none" would otherwise hide every "none".
//
// Limits:  a password of less than kShortest bytes is hidden by its name only: it would turn up
//          everywhere.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

namespace tvx::tool {

class Secrets {
 public:
  static constexpr std::size_t kShortest = 4;
  static constexpr const char* kHidden = "[hidden]";

  // Remembers the secrets of a document, which may be damaged.
  void Learn(std::string_view document);

  // The text without secrets.
  std::string Hide(std::string_view text) const;

  // What a program reads on its standard input: a line's option at most is left of it, as all else
  // may be secret, and a part of a secret if the input came in pieces.
  static std::string HideInput(std::string_view input);

 private:
  struct LongestFirst {
    bool operator()(const std::string& a, const std::string& b) const {
      return a.size() != b.size() ? a.size() > b.size() : a < b;
    }
  };

  std::set<std::string, LongestFirst> known_;
};

}  // namespace tvx::tool
