// The notation in which tests write the headers of coded video.
#pragma once

#include <cstdlib>
#include <sstream>
#include <string>

namespace quicktime::test {

// Fields apart by blanks, most significant bit first: "5:8" is 5 in eight bits, "e5" and "s-5" are
// unsigned and signed Exp-Golomb codes, "e5*3" is three of them. A stop bit ends them, and zero
// bits fill the last byte.
inline std::string CodedBits(const std::string& fields) {
  std::string bits;
  std::istringstream tokens(fields);
  for (std::string token; tokens >> token;) {
    const std::size_t star = token.find('*');
    int count = star == std::string::npos ? 1 : std::atoi(token.c_str() + star + 1);
    const bool isCode = token[0] == 'e' || token[0] == 's';
    unsigned long value = std::strtoul(token.c_str() + (isCode ? 1 : 0), nullptr, 10);
    int width = std::atoi(token.c_str() + token.find(':') + 1);
    if (isCode) {
      const int number = std::atoi(token.c_str() + 1);
      if (token[0] == 's') value = static_cast<unsigned>(number > 0 ? 2 * number - 1 : -2 * number);
      width = 1;
      for (++value; value >> (width / 2 + 1) != 0;) width += 2;
    }
    while (count-- > 0) {
      for (int i = width - 1; i >= 0; --i) bits += i < 32 && (value >> i & 1) != 0 ? '1' : '0';
    }
  }
  bits += '1';
  bits.resize((bits.size() + 7) / 8 * 8, '0');
  std::string bytes;
  for (std::size_t i = 0; i < bits.size(); i += 8) {
    bytes += static_cast<char>(std::stoi(bits.substr(i, 8), nullptr, 2));
  }
  return bytes;
}

// A unit of H.264: its first byte and the fields, with the bytes that keep them from looking like a
// start code.
inline std::string CodedUnit(char first, const std::string& fields) {
  std::string unit(1, first);
  int zeros = 0;
  for (const char c : CodedBits(fields)) {
    if (zeros == 2 && static_cast<unsigned char>(c) <= 3) {
      unit += '\3';
      zeros = 0;
    }
    unit += c;
    zeros = c == 0 ? zeros + 1 : 0;
  }
  return unit;
}

}  // namespace quicktime::test
