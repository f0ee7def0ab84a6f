// What the web server's login answer says about one system.
//
// The answer is JSON (RFC 8259), but web servers of many versions write it, and of all it holds
// only three texts are wanted. So it is scanned rather than parsed: what stands around the list
// does not matter, nor do unknown keys, their order, or small faults.
//
// Threads: any; no state. Limits: time linear in the length of the answer, no recursion.
// Errors:  none but memory exhaustion; any bytes give an outcome.
#pragma once

#include <string>
#include <string_view>

namespace tvx {

struct LoginAnswer {
  enum class Outcome {
    NotUnderstood,  // no list, or the system is listed without an id
    NotListed,
    Listed,
  };
  Outcome outcome = Outcome::NotUnderstood;
  // The following are set when the system is listed.
  std::string serverId;
  // The same as the web server wrote it, its escapes kept: it can stand between the double-quote
  // characters of another JSON text as it is, whatever it holds.
  std::string serverIdEscaped;
  // The object of this system names a model: its web server takes the newer search format.
  bool newerSearchFormat = false;
};

// Looks for the first object with this serial number and an id, from the first "[" behind the key
// "list" to the last "]" of the text. Keys of objects inside an object are not the object's own. An
// empty serial number matches no object.
LoginAnswer ScanLoginAnswer(std::string_view answer, std::string_view serial);

}  // namespace tvx
