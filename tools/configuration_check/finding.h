// What the author of a configuration should know about it, and the rules that find it.
// Threads: plain values, their owner's.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tvx::tool {

enum class Severity {
  Error,    // something that the file says is not taken as it says
  Warning,  // taken, but surely not meant
};

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

// A kind of finding: a row in a table of those that concern one kind of thing. In its texts $word
// stands for the fact of this name.
template <typename Thing>
struct Rule {
  Severity severity;
  const char* at;  // where in the element: "attribute", "child/" or "child/attribute"
  const char* code;
  const char* what;
  const char* why;
  const char* effect;
  const char* fix;
  bool (*applies)(const Thing&);
};

// What the words of a rule stand for: texts and numbers by name.
using Facts = nlohmann::json;

// The text with its words replaced. Throws std::out_of_range for one that is no fact.
std::string Fill(const char* text, const Facts& facts);

// Adds a finding for each rule that applies to the thing. placeOf(rule.at) gives its place; facts()
// is asked only when there is something to say.
template <typename Thing, typename Rules, typename PlaceOf, typename FactsOf>
void Apply(const Rules& rules, const Thing& thing, const PlaceOf& placeOf, const FactsOf& facts,
           Findings& findings) {
  for (const Rule<Thing>& rule : rules) {
    if (!rule.applies(thing)) continue;
    const Facts known = facts();
    findings.push_back({rule.severity, placeOf(rule.at), rule.code, Fill(rule.what, known),
                        Fill(rule.why, known), Fill(rule.effect, known), Fill(rule.fix, known)});
  }
}

}  // namespace tvx::tool
