#include "preview/memory_file_stream.h"

#include <limits>

namespace tvx::tool {

bool MemoryFileStream::open(const std::string&, std::ios::openmode) {
  content_.clear();
  return true;
}

INotifyFileStream& MemoryFileStream::write(const std::string& text) {
  content_ += text;
  return *this;
}

INotifyFileStream& MemoryFileStream::write(const char* text) {
  content_ += text;
  return *this;
}

INotifyFileStream& MemoryFileStream::write(std::int32_t number) {
  return write(std::to_string(number));
}

INotifyFileStream& MemoryFileStream::write(std::uint32_t number) {
  return write(std::to_string(number));
}

std::uint64_t MemoryFileStream::space(const std::string&) {
  return std::numeric_limits<std::uint64_t>::max();
}

}  // namespace tvx::tool
