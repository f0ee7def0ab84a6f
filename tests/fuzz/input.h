// Takes the bytes of a fuzz input apart, and states what must hold for every input.
//
// Inputs are texts as far as possible, so that seeds and findings can be read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace tvx::test {

inline std::string_view AsText(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// What stands before the first line feed; the rest is left behind it. An input without one is all
// line.
inline std::string_view TakeLine(std::string_view& input) {
  const std::size_t end = input.find('\n');
  const std::string_view line = input.substr(0, end);
  input.remove_prefix(end == std::string_view::npos ? input.size() : end + 1);
  return line;
}

// The first byte as a number; 0 when nothing is left.
inline std::size_t TakeByte(std::string_view& input) {
  if (input.empty()) return 0;
  const auto byte = static_cast<unsigned char>(input.front());
  input.remove_prefix(1);
  return byte;
}

// Ends the run as a finding; unlike an assertion, in every build.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

}  // namespace tvx::test
