#include "support/temporary_folder.h"

#include <unistd.h>

#include <boost/filesystem.hpp>
#include <fstream>
#include <iterator>

namespace tvx::test {
namespace fs = boost::filesystem;

// The same path for all tests of a process: what the code keeps for its life stays true. A process
// that was killed may have left one under the same number.
TemporaryFolder::TemporaryFolder() : before_(fs::current_path().string()) {
  const fs::path path = fs::temp_directory_path() / ("notifypi-test-" + std::to_string(::getpid()));
  fs::remove_all(path);
  fs::create_directories(path);
  path_ = path.string();
  fs::current_path(path);
}

TemporaryFolder::~TemporaryFolder() {
  boost::system::error_code ignored;
  fs::current_path(before_, ignored);
  fs::remove_all(path_, ignored);
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

bool FileExists(const std::string& path) {
  return fs::exists(path);
}

}  // namespace tvx::test
