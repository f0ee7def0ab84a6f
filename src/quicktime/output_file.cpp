#include "quicktime/output_file.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <boost/smart_ptr/make_unique.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace quicktime {
namespace {

// Beside the path, so that the rename stays within one file system. The name is shortened where
// the suffix would make it longer than a name may be.
std::string PartialPath(const std::string& path) {
  static constexpr char kSuffix[] = ".part";
  const std::size_t slash = path.rfind('/');
  const std::size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
  const std::size_t longest = NAME_MAX - (sizeof(kSuffix) - 1);
  return path.substr(0, nameStart) + path.substr(nameStart, longest) + kSuffix;
}

}  // namespace

int OutputFile::Open(const std::string& path) {
  Discard();
  if (path.empty()) return ENOENT;
  struct stat found {};
  const bool exists = ::stat(path.c_str(), &found) == 0;
  if (!exists && errno != ENOENT) return errno;

  // All memory first: once there is a file, it is certain that it can be removed.
  const bool inPlace = exists && !S_ISREG(found.st_mode);
  std::string partial = inPlace ? std::string() : PartialPath(path);
  path_ = path;
  if (buffer_ == nullptr) buffer_ = boost::make_unique_noinit<std::uint8_t[]>(kBlock);
  if (inPlace) {
    // A device must not be replaced by a file; and a pipe without a reader must not stop us.
    descriptor_ = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK);
  } else {
    descriptor_ = ::open(partial.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW,
                         S_IRUSR | S_IWUSR);
  }
  if (descriptor_ < 0) return errno;
  // One that a killed host of an earlier version left may be open to others.
  if (!inPlace) ::fchmod(descriptor_, S_IRUSR | S_IWUSR);
  partialPath_.swap(partial);
  buffered_ = 0;
  written_ = 0;
  return 0;
}

void OutputFile::LeaveRoom(std::size_t bytes) {
  written_ = bytes;
  GoTo(bytes);
}

void OutputFile::AppendU32(std::uint32_t value) {
  const std::uint8_t bytes[] = {
      static_cast<std::uint8_t>(value >> 24), static_cast<std::uint8_t>(value >> 16),
      static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value)};
  Append({bytes, sizeof(bytes)});
}

void OutputFile::MoveBack(std::size_t room, std::size_t bytes) {
  WriteBlockAnd({});
  // From the end, so that nothing is written over that is still to be read.
  for (std::uint64_t end = written_; end > room;) {
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(kBlock, end - room));
    end -= size;
    GoTo(end);
    for (std::size_t done = 0; done < size;) {
      const ssize_t count = ::read(descriptor_, buffer_.get() + done, size - done);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) Fail(count < 0 ? errno : EIO, "read");
      done += static_cast<std::size_t>(count);
    }
    GoTo(end + bytes);
    iovec piece{buffer_.get(), size};
    WriteAll(&piece, 1);
  }
}

void OutputFile::FillRoom(ByteView bytes) {
  WriteBlockAnd({});
  GoTo(0);
  WriteBlockAnd(bytes);
}

void OutputFile::Commit() {
  WriteBlockAnd({});
  // Some file systems say only here that the disk is full. The descriptor is gone either way.
  const int descriptor = descriptor_;
  descriptor_ = -1;
  if (::close(descriptor) != 0 && errno != EINTR) {
    const int error = errno;
    Discard();
    Fail(error, "close");
  }
  if (partialPath_.empty()) return;
  if (::rename(partialPath_.c_str(), path_.c_str()) != 0) {
    const int error = errno;
    Discard();
    Fail(error, "rename");
  }
  partialPath_.clear();
}

void OutputFile::Discard() noexcept {
  if (descriptor_ >= 0) ::close(descriptor_);
  descriptor_ = -1;
  if (!partialPath_.empty()) ::unlink(partialPath_.c_str());
  partialPath_.clear();
}

void OutputFile::GoTo(std::uint64_t position) {
  if (::lseek(descriptor_, static_cast<off_t>(position), SEEK_SET) < 0) Fail(errno, "seek in");
}

void OutputFile::Buffer(ByteView bytes) {
  if (bytes.empty()) return;
  std::memcpy(buffer_.get() + buffered_, bytes.data, bytes.size);
  buffered_ += bytes.size;
}

// In one call, and the bytes straight from where they are.
void OutputFile::WriteBlockAnd(ByteView bytes) {
  iovec pieces[] = {{buffer_.get(), buffered_},
                    {const_cast<std::uint8_t*>(bytes.data), bytes.size}};
  WriteAll(pieces, 2);
  written_ += buffered_ + bytes.size;
  buffered_ = 0;
}

void OutputFile::WriteAll(iovec* pieces, int count) {
  for (;;) {
    while (count > 0 && pieces->iov_len == 0) {
      ++pieces;
      --count;
    }
    if (count == 0) return;
    const ssize_t written = ::writev(descriptor_, pieces, count);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) Fail(written < 0 ? errno : EIO, "write");
    std::size_t done = static_cast<std::size_t>(written);
    for (int i = 0; i < count && done > 0; ++i) {
      const std::size_t part = done < pieces[i].iov_len ? done : pieces[i].iov_len;
      pieces[i].iov_base = static_cast<std::uint8_t*>(pieces[i].iov_base) + part;
      pieces[i].iov_len -= part;
      done -= part;
    }
  }
}

void OutputFile::Fail(int error, const char* what) const {
  throw std::system_error(error, std::generic_category(),
                          std::string("Cannot ") + what + " \"" + path_ + "\"");
}

}  // namespace quicktime
