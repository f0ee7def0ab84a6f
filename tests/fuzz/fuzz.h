// What every fuzz target has: an input taken apart, and what must hold for every input.
//
// Inputs are texts as far as possible, so that seeds and findings can be read.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace tvx::test {

// The targets, one for each entry of foreign bytes; NAME in script/fuzz is theirs in the table of
// fuzz_main.cpp. Each is given the whole input.
void FuzzChannelChunk(std::string_view input);
void FuzzDateTemplate(std::string_view input);
void FuzzEventDocument(std::string_view input);
void FuzzFrameRecord(std::string_view input);
void FuzzH264Movie(std::string_view input);
void FuzzHttpAnswer(std::string_view input);
void FuzzLoginAnswer(std::string_view input);
void FuzzMpeg4Movie(std::string_view input);
void FuzzNotifyFile(std::string_view input);
void FuzzSystemDocument(std::string_view input);
void FuzzUpdateDocument(std::string_view input);
void FuzzWebServerAddress(std::string_view input);

// What stands before the first line feed; the rest is left behind it. An input without one is all
// line.
inline std::string_view TakeLine(std::string_view& input) {
  const std::size_t end = input.find('\n');
  const std::string_view line = input.substr(0, end);
  input.remove_prefix(end == std::string_view::npos ? input.size() : end + 1);
  return line;
}

inline std::string_view TakeBytes(std::string_view& input, std::size_t count) {
  const std::string_view bytes = input.substr(0, count);
  input.remove_prefix(bytes.size());
  return bytes;
}

// What is missing at the end of the input is 0.
template <typename Number>
Number TakeNumber(std::string_view& input) {
  Number number = 0;
  const std::string_view bytes = TakeBytes(input, sizeof(number));
  std::memcpy(&number, bytes.data(), bytes.size());
  return number;
}
inline std::size_t TakeByte(std::string_view& input) {
  return TakeNumber<unsigned char>(input);
}

// Ends the run as a finding; unlike an assertion, in every build.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

}  // namespace tvx::test
