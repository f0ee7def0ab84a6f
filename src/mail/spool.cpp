#include "mail/spool.h"

#include <boost/filesystem.hpp>
#include <climits>
#include <exception>

#include "log/host_log.h"

namespace tvx {
namespace fs = boost::filesystem;

namespace {

// Kept for good, since the host may change its working directory later; in place, as threads of the
// host may outlive what is destroyed at exit.
struct Directory {
  Directory() {
    boost::system::error_code error;
    std::string absolute = fs::absolute(kDataFolder, error).string();
    if (error || absolute.size() >= sizeof(path)) absolute = kDataFolder;
    absolute.copy(path, sizeof(path) - 1);
  }
  char path[PATH_MAX] = {};
};

}  // namespace

std::string DataDirectory() {
  static const Directory directory;
  return directory.path;
}

void ClearSpool(HostServiceEntry host) {
  try {
    // A link may lead to a folder whose files are somebody else's.
    if (fs::symlink_status(DataDirectory()).type() != fs::directory_file) return;
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
