#include "mail/spool.h"

#include <boost/filesystem.hpp>
#include <exception>

#include "log/host_log.h"

namespace tvx {
namespace fs = boost::filesystem;

const std::string& DataDirectory() {
  static const std::string directory = [] {
    boost::system::error_code error;
    const fs::path absolute = fs::absolute(kDataFolder, error);
    return error ? std::string(kDataFolder) : absolute.string();
  }();
  return directory;
}

void ClearSpool(HostServiceEntry host) {
  try {
    if (!fs::exists(DataDirectory())) return;
    for (const fs::directory_entry& entry : fs::directory_iterator(DataDirectory())) {
      const bool isMessage = entry.path().filename().string().rfind(kMessagePrefix, 0) == 0;
      if (isMessage && fs::is_regular_file(entry.symlink_status())) fs::remove(entry.path());
    }
  } catch (const std::exception& error) {
    HostLog(kModuleId, host, LogLevel::Information,
            "Exception while clearing data subdirectory: %s", error.what());
  }
}

}  // namespace tvx
