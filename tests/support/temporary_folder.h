// A folder of a test's own, made the working directory for its life and removed with it.
#pragma once

#include <string>

namespace tvx::test {

class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& Path() const { return path_; }

 private:
  std::string path_;
  std::string before_;
};

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);
bool FileExists(const std::string& path);

}  // namespace tvx::test
