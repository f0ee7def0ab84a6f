// The result record of one exported call, watched for writes where none belong.
//
// It is filled with a pattern before the call; afterwards the words that the call must write have
// their value and every other byte still has the pattern.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>

namespace tvx::tool {

template <typename Record>
class ResultRecord {
  static_assert(std::is_trivially_copyable_v<Record>);

 public:
  ResultRecord() {
    found_.fill(kPattern);
    expected_.fill(kPattern);
  }

  void* Address() { return found_.data(); }

  // The record as the call must leave it: set its words here.
  Record& Expected() { return *reinterpret_cast<Record*>(expected_.data()); }

  // A word that the call must make 0 or 1.
  void ExpectFlag(std::uint32_t Record::*word) { flag_ = word; }

  // The record as the call left it.
  const Record& Found() const { return *reinterpret_cast<const Record*>(found_.data()); }

  // The first difference in words, or nothing.
  std::string Difference() {
    if (flag_ != nullptr) Expected().*flag_ = Found().*flag_ == 0 ? 0 : 1;
    for (std::size_t offset = 0; offset < found_.size(); ++offset) {
      if (found_[offset] == expected_[offset]) continue;
      char text[128];
      std::snprintf(text, sizeof(text),
                    "the result record holds byte 0x%02x at offset %u, where %s0x%02x belongs",
                    found_[offset], static_cast<unsigned>(offset),
                    expected_[offset] == kPattern ? "the host's own " : "", expected_[offset]);
      return text;
    }
    return {};
  }

 private:
  static constexpr unsigned char kPattern = 0xA5;
  static constexpr std::size_t kSlack = 64;  // catches writes behind the record

  using Bytes = std::array<unsigned char, sizeof(Record) + kSlack>;
  alignas(Record) Bytes found_;
  alignas(Record) Bytes expected_;
  std::uint32_t Record::*flag_ = nullptr;
};

}  // namespace tvx::tool
