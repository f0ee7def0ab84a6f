// A file to read from: what an attachment is encoded from.
// Threads: one at a time; the worker's.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace tvx {

class INotifyFile {
 public:
  virtual ~INotifyFile() = default;
  // A file is open and no error has shown.
  virtual bool good() const = 0;
  // Reads up to count bytes; less only at the end or after an error.
  virtual std::size_t read(char* buffer, std::size_t count) = 0;
};

// On the standard library's buffered file, with a buffer large enough that reading in small pieces
// costs no system call each.
class CNotifyFileImpl : public INotifyFile {
 public:
  explicit CNotifyFileImpl(const std::string& path);

  bool good() const override;
  std::size_t read(char* buffer, std::size_t count) override;

 private:
  struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  std::vector<char> buffer_;  // outlives file_, which uses it
  std::unique_ptr<std::FILE, CloseFile> file_;
};

}  // namespace tvx
