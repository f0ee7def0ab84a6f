#include "service/config_publisher.h"

#include <cstring>
#include <utility>

#include "base/clock.h"
#include "config/config_file.h"
#include "config/module_documents.h"
#include "config/notify_writer.h"
#include "config/xml_document.h"
#include "host/host_entry.h"
#include "log/host_log.h"

namespace tvx {

void ConfigPublisher::SetFile(File file) {
  MutexLock lock(mutex_);
  file_ = file;
}

void ConfigPublisher::Publish(Changes changes) {
  {
    MutexLock lock(mutex_);
    unreported_.splice(unreported_.end(), changes);
    isDue_ = true;
    if (std::exchange(isPublishing_, true)) return;
  }
  try {
    // The changes first: what is asked for after them contains them.
    while (TakeTurn(changes)) SaveAndSend(*newest_(), changes);
  } catch (...) {
    MutexLock lock(mutex_);
    isPublishing_ = false;
    unreported_.splice(unreported_.begin(), changes);
    throw;
  }
}

bool ConfigPublisher::TakeTurn(Changes& changes) {
  MutexLock lock(mutex_);
  changes.clear();
  isPublishing_ = std::exchange(isDue_, false);
  if (isPublishing_) changes.swap(unreported_);
  return isPublishing_;
}

void ConfigPublisher::SaveAndSend(const NotifyConfig& config, Changes& changes) {
  File file{};
  {
    MutexLock lock(mutex_);
    if (file_ == File::Unread && !config.loaded) return;
    file = std::exchange(file_, File::Replaceable);
  }
  const std::string text = PrintDocument(*BuildNotifyDocument(config));
  const int error = file == File::KeptOnce ? 0 : SaveConfigFile(kConfigFile, text);
  if (error != 0) {
    HostLog(kModuleId, host_, LogLevel::Warning,
            "The configuration could not be saved to notify.xml and holds until the server stops: "
            "%s",
            std::strerror(error));
  }
  SendHostDocument(host_, HostCommand::ConfigDocument, text);
  for (; !changes.empty(); changes.pop_front()) {
    SendHostDocument(host_, HostCommand::StatusDocument,
                     StatusDocument(changes.front(), ProfileStatus::Changed, WallSeconds()));
  }
}

}  // namespace tvx
