#include "simulated_host/working_copy.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "config/config_file.h"

namespace tvx::tool {
namespace {

namespace fs = std::filesystem;

// The configuration with what the plug-in keeps beside it, and its spool.
bool IsPluginsOwn(const std::string& name) {
  return name.rfind(kConfigFile, 0) == 0 || name == "data";
}

}  // namespace

WorkingCopy::WorkingCopy(const std::string& folder, const std::string& configuration) {
  path_ = (fs::temp_directory_path() / "notifypi-XXXXXX").string();
  if (::mkdtemp(path_.data()) == nullptr) {
    throw std::runtime_error(path_ + ": " + std::generic_category().message(errno));
  }
  try {
    Fill(folder, configuration);
  } catch (const fs::filesystem_error& error) {
    Remove();
    throw std::runtime_error(error.path1().string() + ": cannot be copied to " + path_ + ": " +
                             error.code().message());
  }
}

void WorkingCopy::Fill(const std::string& folder, const std::string& configuration) const {
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    const fs::path name = entry.path().filename();
    if (!IsPluginsOwn(name.string())) {
      fs::create_symlink(fs::absolute(entry.path()), fs::path(path_) / name);
    }
  }
  if (!configuration.empty()) fs::copy_file(configuration, fs::path(path_) / kConfigFile);
}

void WorkingCopy::Remove() const {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

}  // namespace tvx::tool
