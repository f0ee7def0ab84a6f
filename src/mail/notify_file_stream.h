// The disk, as the delivery code sees it: one output file with a sticky error, and the few
// operations on the spool directory. Replaceable, so that tests can fill the disk.
//
// Threads: one at a time; the worker's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ios>
#include <string>
#include <vector>

#include "host/host_records.h"

namespace tvx {

class INotifyFileStream {
 public:
  virtual ~INotifyFileStream() = default;

  // Closes any open file and opens this one for output, from its start or, with app, at its end;
  // false when that fails.
  virtual bool open(const std::string& path, std::ios::openmode mode) = 0;
  // A close that fails (a full disk shows late) sets the error.
  virtual void close() = 0;
  virtual bool good() const = 0;
  virtual bool fail() const = 0;
  // Each appends to the file, unless an earlier write failed. A null pointer is an error.
  virtual INotifyFileStream& write(const std::string& text) = 0;
  virtual INotifyFileStream& write(const char* text) = 0;
  virtual INotifyFileStream& write(std::int32_t number) = 0;
  virtual INotifyFileStream& write(std::uint32_t number) = 0;
  // Bytes written so far.
  virtual std::int32_t position() = 0;
  // Bytes that this process may still write on the volume of path. A query that fails counts as
  // enough: it must not set off a purge.
  virtual std::uint64_t space(const std::string& path) = 0;
  // An existing directory is fine. What it holds is for this user alone.
  virtual bool createDirectory(const std::string& path) = 0;
  virtual bool remove(const std::string& path) = 0;
};

// The least free space that the spool leaves to the rest of the system, in bytes.
constexpr std::uint32_t kFreeSpaceThreshold = 104857600;

// Mails are nobody else's business: files are this user's alone, and a link or a pipe that somebody
// has put in a file's place is neither followed nor waited for.
class NotifyFileStreamImpl : public INotifyFileStream {
 public:
  explicit NotifyFileStreamImpl(HostServiceEntry host) : host_(host) {}
  ~NotifyFileStreamImpl() override;
  NotifyFileStreamImpl(const NotifyFileStreamImpl&) = delete;
  NotifyFileStreamImpl& operator=(const NotifyFileStreamImpl&) = delete;

  bool open(const std::string& path, std::ios::openmode mode) override;
  void close() override;
  bool good() const override { return !failed_; }
  bool fail() const override { return failed_; }
  INotifyFileStream& write(const std::string& text) override;
  INotifyFileStream& write(const char* text) override;
  INotifyFileStream& write(std::int32_t number) override;
  INotifyFileStream& write(std::uint32_t number) override;
  std::int32_t position() override;
  std::uint64_t space(const std::string& path) override;
  bool createDirectory(const std::string& path) override;
  bool remove(const std::string& path) override;

 private:
  NotifyFileStreamImpl& Append(const char* bytes, std::size_t count);
  void WriteOut(const char* bytes, std::size_t count);

  const HostServiceEntry host_;
  int descriptor_ = -1;
  bool failed_ = false;
  std::vector<char> buffered_;  // not written yet; has its memory from the first open on
  std::int64_t written_ = 0;
};

}  // namespace tvx
