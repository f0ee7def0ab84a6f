#include "config/config_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tinyxml.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <utility>

#include "base/file.h"
#include "base/input_limits.h"
#include "config/notify_read_observer.h"
#include "config/notify_reader.h"
#include "config/xml_document.h"

namespace tvx {
namespace {

constexpr mode_t kPrivate = S_IRUSR | S_IWUSR;

mode_t ModeOf(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777u : kPrivate;
}

bool WriteFlushed(const std::string& path, mode_t mode, const TiXmlDocument& document) {
  // Private from the first byte; opened up, if at all, only as far as the file that it replaces.
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kPrivate);
  if (descriptor < 0) return false;
  File file(::fdopen(descriptor, "wb"));
  if (!file) {
    ::close(descriptor);
    return false;
  }
  // A file system without permissions refuses; then there is nothing to keep either.
  static_cast<void>(::fchmod(descriptor, mode));
  document.Print(file.get(), 0);
  if (std::ferror(file.get()) != 0 || std::fflush(file.get()) != 0) return false;
  if (::fsync(descriptor) != 0) return false;
  return std::fclose(file.release()) == 0;
}

}  // namespace

ConfigDocument ReadConfigFile(const std::string& path, Positions positions) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return {};
  // Asked first: reading a pipe might never end, and a huge file would not fit into the process.
  if (!S_ISREG(status.st_mode)) {
    return {LoadOutcome::Rejected, nullptr, {"it is no regular file"}};
  }
  if (static_cast<std::uint64_t>(status.st_size) > kMaxDocumentBytes) {
    return {LoadOutcome::Rejected, nullptr, {RefusalReason(ParseOutcome::TooLarge)}};
  }
  std::ifstream file(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  ParsedDocument parsed = ParseDocument(text.data(), text.size(), positions);
  if (parsed.outcome == ParseOutcome::Empty) parsed.fault.text = "it is empty";
  return {parsed.document ? LoadOutcome::Loaded : LoadOutcome::Rejected, std::move(parsed.document),
          std::move(parsed.fault)};
}

LoadOutcome TakeConfigDocument(const ConfigDocument& file, NotifyConfig& config) {
  NotifyReadObserver nobody;
  return TakeConfigDocument(file, config, nobody);
}

LoadOutcome TakeConfigDocument(const ConfigDocument& file, NotifyConfig& config,
                               NotifyReadObserver& observer) {
  if (file.outcome != LoadOutcome::Loaded) return file.outcome;
  const TiXmlElement* root = file.document->RootElement();
  NotifyConfig taken = config;
  if (root == nullptr || !ReadNotify(*root, taken, observer)) return LoadOutcome::Rejected;
  config = std::move(taken);
  return LoadOutcome::Loaded;
}

bool KeepRejectedFile(const std::string& path) {
  return std::rename(path.c_str(), (path + ".rejected").c_str()) == 0;
}

bool SaveConfigFile(const std::string& path, const TiXmlDocument& document) {
  // Goes with the scope unless it has taken its place, also when memory runs out while it is
  // written.
  struct Beside {
    ~Beside() { std::remove(path.c_str()); }
    const std::string path;
  } beside{path + ".new"};
  return WriteFlushed(beside.path, ModeOf(path), document) &&
         std::rename(beside.path.c_str(), path.c_str()) == 0;
}

}  // namespace tvx
