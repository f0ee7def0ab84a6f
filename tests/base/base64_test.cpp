#include "base/base64.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace tvx {
namespace {

TEST(Base64, EncodesTheVectorsOfTheStandard) {
  const std::string text = "foobar";
  const char* const encoded[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
  for (std::size_t count = 0; count <= text.size(); ++count) {
    EXPECT_EQ(Base64Encode(text.data(), count), encoded[count]);
  }
}

// The plain way, bit by bit, to hold the fast one against.
std::string Reference(const std::string& bytes) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string encoded;
  for (std::size_t bit = 0; bit < bytes.size() * 8; bit += 6) {
    unsigned value = 0;
    for (std::size_t i = bit; i < bit + 6; ++i) {
      const unsigned byte = i / 8 < bytes.size() ? static_cast<unsigned char>(bytes[i / 8]) : 0u;
      value = value << 1 | ((byte >> (7 - i % 8)) & 1u);
    }
    encoded.push_back(alphabet[value]);
  }
  while (encoded.size() % 4 != 0) encoded.push_back('=');
  return encoded;
}

TEST(Base64, IsTheSameInAnyLengthAndForAnyBytes) {
  std::minstd_rand random(7);
  for (std::size_t length = 0; length < 300; ++length) {
    std::string bytes(length, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random() >> 8);
    EXPECT_EQ(Base64Encode(bytes.data(), bytes.size()), Reference(bytes)) << length;

    std::string expected;
    for (std::size_t at = 0; at < length; at += kBase64LineBytes) {
      expected += Reference(bytes.substr(at, kBase64LineBytes));
      if (expected.back() != '=') expected.push_back('\n');
    }
    // A block as large as promised, at the end of its allocation, so that a sanitizer sees excess.
    const std::vector<unsigned char> block(bytes.begin(), bytes.end());
    std::vector<char> lines((length + kBase64LineBytes - 1) / kBase64LineBytes * 77);
    const char* const end = EncodeBase64Lines(block.data(), block.size(), lines.data());
    EXPECT_EQ(std::string(lines.data(), static_cast<std::size_t>(end - lines.data())), expected);
  }
}

}  // namespace
}  // namespace tvx
