#include <gtest/gtest.h>

#include <string>

#include "base/base64.h"

namespace tvx {
namespace {

TEST(Base64, EncodesTheVectorsOfTheStandard) {
  const std::string text = "foobar";
  const char* const encoded[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
  for (std::size_t count = 0; count <= text.size(); ++count) {
    EXPECT_EQ(Base64Encode(text.data(), count), encoded[count]);
  }
}

TEST(Base64, AppendsEveryCharacterOfTheAlphabetInOrder) {
  // The 6-bit values 0 to 63, packed.
  std::string bytes;
  for (unsigned value = 0; value < 64; value += 4) {
    const unsigned packed = value << 18 | (value + 1) << 12 | (value + 2) << 6 | (value + 3);
    for (const int shift : {16, 8, 0}) bytes.push_back(static_cast<char>(packed >> shift));
  }
  std::string text = "before ";
  AppendBase64(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), text);
  EXPECT_EQ(text, "before ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
}

}  // namespace
}  // namespace tvx
