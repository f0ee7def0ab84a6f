#include "mail/notify_file_stream.h"

#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstdio>
#include <exception>

#include "log/host_log.h"

namespace tvx {
namespace fs = boost::filesystem;

bool NotifyFileStreamImpl::open(const std::string& path, std::ios::openmode mode) {
  if (stream_.is_open()) stream_.close();
  stream_.clear();
  stream_.open(path, mode | std::ios::out);
  return stream_.good();
}

void NotifyFileStreamImpl::close() {
  stream_.close();
}

INotifyFileStream& NotifyFileStreamImpl::write(const std::string& text) {
  stream_ << text;
  return *this;
}

INotifyFileStream& NotifyFileStreamImpl::write(const char* text) {
  stream_ << text;  // a null pointer sets badbit
  return *this;
}

INotifyFileStream& NotifyFileStreamImpl::write(std::int32_t number) {
  return write(std::to_string(number));  // a stream's own way would follow the locale
}

INotifyFileStream& NotifyFileStreamImpl::write(std::uint32_t number) {
  return write(std::to_string(number));
}

std::int32_t NotifyFileStreamImpl::position() {
  return static_cast<std::int32_t>(std::streamoff(stream_.tellp()));
}

std::uint64_t NotifyFileStreamImpl::space(const std::string& path) {
  try {
    return fs::space(path).available;
  } catch (const std::exception& error) {
    HostLog(kModuleId, host_, LogLevel::Information, "Exception while query volume space: %s",
            error.what());
    return std::uint64_t{kFreeSpaceThreshold} + 1;
  }
}

bool NotifyFileStreamImpl::createDirectory(const std::string& path) {
  try {
    fs::create_directory(path);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

bool NotifyFileStreamImpl::remove(const std::string& path) {
  // Without memory, as files are removed when there is none. One that is not there is as good.
  return std::remove(path.c_str()) == 0 || errno == ENOENT || errno == ENOTDIR;
}

}  // namespace tvx
