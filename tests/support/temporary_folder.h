// A folder of a test's own, made the working directory for its life and removed with it.
#pragma once

#include <unistd.h>

#include <boost/filesystem.hpp>
#include <fstream>
#include <iterator>
#include <string>

namespace tvx::test {

// The same path for all tests of a process: what the code keeps for its life stays true. A process
// that was killed may have left one under the same number.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    boost::filesystem::remove_all(path_);
    boost::filesystem::create_directories(path_);
    boost::filesystem::current_path(path_);
  }
  ~TemporaryFolder() {
    boost::system::error_code ignored;
    boost::filesystem::current_path(before_, ignored);
    boost::filesystem::remove_all(path_, ignored);
  }
  const std::string& Path() const { return path_; }

 private:
  const std::string before_ = boost::filesystem::current_path().string();
  const std::string path_ =
      (boost::filesystem::temp_directory_path() / ("notifypi-test-" + std::to_string(::getpid())))
          .string();
};

inline std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}
inline void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}
inline bool FileExists(const std::string& path) {
  return boost::filesystem::exists(path);
}

}  // namespace tvx::test
