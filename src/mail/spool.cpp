#include "mail/spool.h"

#include <boost/filesystem.hpp>
#include <exception>

#include "base/immortal.h"
#include "log/host_log.h"

namespace tvx {
namespace fs = boost::filesystem;

namespace {

// Kept, since the host may change its working directory later. Empty until somebody asks.
std::string& KeptDirectory() {
  static Immortal<std::string> path;
  return path.value;
}

}  // namespace

const std::string& DataDirectory() {
  std::string& path = KeptDirectory();
  if (path.empty()) {
    boost::system::error_code error;
    const fs::path absolute = fs::absolute(kDataFolder, error);
    path = error ? std::string(kDataFolder) : absolute.string();
  }
  return path;
}

void ForgetDataDirectory() noexcept {
  std::string().swap(KeptDirectory());
}

void ClearSpool(HostServiceEntry host) {
  try {
    // A link may lead to a folder whose files are somebody else's.
    const fs::file_type type = fs::symlink_status(DataDirectory()).type();
    if (type == fs::symlink_file || type == fs::file_not_found) return;
    for (const fs::directory_entry& entry : fs::directory_iterator(DataDirectory())) {
      const bool isMessage = entry.path().filename().string().rfind(kMessagePrefix, 0) == 0;
      boost::system::error_code leadsNowhere;
      if (isMessage && fs::is_regular_file(fs::status(entry.path(), leadsNowhere))) {
        fs::remove(entry.path());
      }
    }
  } catch (const std::exception& error) {
    HostLog(kModuleId, host, LogLevel::Information,
            "Exception while clearing data subdirectory: %s", error.what());
  }
}

}  // namespace tvx
