// An output file that exists in memory only, so that a message can be composed without a spool.
// Threads: one at a time.
#pragma once

#include <cstdint>
#include <ios>
#include <limits>
#include <string>
#include <utility>

#include "mail/notify_file_stream.h"

namespace tvx::tool {

class MemoryFileStream : public INotifyFileStream {
 public:
  // What has been written since the last open; leaves nothing.
  std::string TakeContent() { return std::exchange(content_, {}); }

  bool open(const std::string&, std::ios::openmode) override {
    content_.clear();
    return true;
  }
  void close() override {}
  bool good() const override { return true; }
  bool fail() const override { return false; }
  INotifyFileStream& write(const std::string& text) override {
    content_ += text;
    return *this;
  }
  INotifyFileStream& write(const char* text) override { return write(std::string(text)); }
  INotifyFileStream& write(std::int32_t number) override { return write(std::to_string(number)); }
  INotifyFileStream& write(std::uint32_t number) override { return write(std::to_string(number)); }
  std::int32_t position() override { return static_cast<std::int32_t>(content_.size()); }
  std::uint64_t space(const std::string&) override {
    return std::numeric_limits<std::uint64_t>::max();
  }
  bool createDirectory(const std::string&) override { return true; }
  bool remove(const std::string&) override { return true; }

 private:
  std::string content_;
};

}  // namespace tvx::tool
