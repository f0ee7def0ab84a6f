// What the author of a configuration should know about it, and the rules that find it.
// Threads: plain values, their owner's.
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tvx::tool {

enum class Severity {
  Error,    // a mail is not sent, or not to whom, by whom or with what the file means
  Warning,  // mails go out, and something is not as it is meant
};
constexpr Severity kError = Severity::Error;
constexpr Severity kWarning = Severity::Warning;

// Where in the file, from 1; line 0 is the file as a whole.
struct Place {
  int line = 0;
  int column = 0;
};

// Each text is a clause, fit for one line of a terminal once control characters are escaped.
struct Finding {
  Severity severity = Severity::Error;
  Place place;
  std::string code;    // names the kind of finding, for programs
  std::string what;    // of the file is concerned, and what happens to it
  std::string why;     // that is so
  std::string effect;  // what the plug-in does
  std::string fix;     // how to set it right
};
using Findings = std::vector<Finding>;

// What the words of a rule stand for: texts and numbers by name.
using Facts = nlohmann::json;

// A kind of finding: a row in a table of those that concern one kind of thing. In its texts $word
// stands for the fact of this name.
template <typename Thing>
struct Rule {
  Severity severity;
  const char* at;  // where in the thing's element: "attribute", "child/" or "child/attribute"
  const char* code;
  const char* what;
  const char* why;
  const char* effect;
  const char* fix;
  bool (*applies)(const Thing&);
};

// The text with its words replaced. Throws an exception of Facts for one that is no fact.
std::string Fill(const char* text, const Facts& facts);

// Adds a finding for each rule that applies to the thing, which tells its places and facts.
template <typename Thing, std::size_t count>
void Apply(const Rule<Thing> (&rules)[count], const Thing& thing, Findings& findings) {
  for (const Rule<Thing>& rule : rules) {
    if (!rule.applies(thing)) continue;
    const Facts facts = thing.Words();
    findings.push_back({rule.severity, thing.At(rule.at), rule.code, Fill(rule.what, facts),
                        Fill(rule.why, facts), Fill(rule.effect, facts), Fill(rule.fix, facts)});
  }
}

}  // namespace tvx::tool
