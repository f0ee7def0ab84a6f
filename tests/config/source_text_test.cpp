#include "config/source_text.h"

#include <gtest/gtest.h>

#include "config/system_document.h"

namespace tvx {
namespace {

TEST(SourceText, FollowsTheEventType) {
  const SystemDirectory directory(test::SystemDocument::Sample().Root());
  constexpr std::uint32_t kItem1 = 0x00010201;  // first item of the sample's device
  constexpr std::uint32_t kItem3 = 0x00010203;
  constexpr std::uint32_t kNumber5 = 0x00010500;
  const struct {
    std::int32_t type;
    std::uint32_t source;
    const char* text;
  } kCases[] = {
      {1, kItem1, "Gate camera"},
      {2, kItem1, "Gate camera"},
      {9, kItem1, "Gate camera"},
      {18, kItem1, "Gate camera"},
      {1, 0x10010201, "Video Input 2-1"},
      {3, kItem3, "Gate contact"},
      {31, kItem3, "Gate contact"},
      {32, kItem3, "Gate contact"},
      {4, 0x00030102, "Till 4"},
      {5, 0x00020401, "Till 4"},
      {6, kNumber5, "Button 5"},
      {7, kNumber5, "Device Temperature 5"},
      {13, kNumber5, "Power Supply 5"},
      {19, kNumber5, "Device Failure 5"},
      {23, kNumber5, "Device Fan 5"},
      {12, 0x000A0003, "Perimeter"},
      {14, kItem1, "North gate"},
      {16, 0x00040001, "Panic"},
      {20, kItem1, "Gate microphone"},
      {21, kItem1, "North gate"},
      {30, kItem1, "North gate"},
      {33, kItem1, "North gate"},
      {24, 0x00050001, "Night"},
      {8, kItem1, ""},
      {10, kItem1, ""},
      {11, kItem1, ""},
      {17, kItem1, ""},
      {22, kItem1, ""},
      {25, kItem1, ""},
      {26, kItem1, ""},
      {27, kItem1, ""},
      {28, kItem1, ""},
      {29, kItem1, ""},
      {0, kItem1, "Unknown"},
      {15, kItem1, "Unknown"},
      {34, kItem1, "Unknown"},
      {35, kItem1, "Unknown"},
      {-1, kItem1, "Unknown"},
      {1, 0, "Unknown"},
      {6, 0, "Unknown"},
      {8, 0, "Unknown"},
  };
  for (const auto& each : kCases) {
    EXPECT_EQ(SourceText(directory, {each.source}, each.type), each.text)
        << "type " << each.type << ", source " << each.source;
  }
}

}  // namespace
}  // namespace tvx
