// Input: the serial number on the first line, the answer behind it.
#include "fuzz/input.h"
#include "web/login_answer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using tvx::test::Require;
  std::string_view answer = tvx::test::AsText(data, size);
  const std::string_view serial = tvx::test::TakeLine(answer);

  const tvx::LoginAnswer found = tvx::ScanLoginAnswer(answer, serial);
  const bool listed = found.outcome == tvx::LoginAnswer::Outcome::Listed;
  Require(!listed || !serial.empty(), "an empty serial number matches nothing");
  Require(listed != found.serverIdEscaped.empty(), "an id comes with a listed system, and only so");
  Require(listed || (found.serverId.empty() && !found.newerSearchFormat),
          "nothing is said of a system that is not listed");

  // The escaped id goes between double-quote characters of another JSON text, so it must not end
  // there, nor swallow the character that does.
  bool escaped = false;
  for (const char c : found.serverIdEscaped) {
    Require(escaped || c != '"', "the escaped id holds no bare double-quote character");
    escaped = !escaped && c == '\\';
  }
  Require(!escaped, "the escaped id does not end in the middle of an escape");
  return 0;
}
