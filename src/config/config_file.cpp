#include "config/config_file.h"

#include <sys/stat.h>
#include <tinyxml.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <utility>

#include "config/notify_reader.h"
#include "config/xml_document.h"

namespace tvx {
namespace {

constexpr mode_t kPrivate = S_IRUSR | S_IWUSR;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

mode_t ModeOf(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777u : kPrivate;
}

bool WriteFlushed(const std::string& path, mode_t mode, const TiXmlDocument& document) {
  File file(std::fopen(path.c_str(), "wbe"));
  if (!file) return false;
  const int descriptor = ::fileno(file.get());
  if (::fchmod(descriptor, mode) != 0) return false;
  document.Print(file.get(), 0);
  if (std::ferror(file.get()) != 0 || std::fflush(file.get()) != 0) return false;
  if (::fsync(descriptor) != 0) return false;
  return std::fclose(file.release()) == 0;
}

}  // namespace

LoadOutcome LoadConfigFile(const std::string& path, NotifyConfig& config) {
  std::ifstream file(path, std::ios::binary);
  if (!file)
    return ::access(path.c_str(), F_OK) == 0 ? LoadOutcome::Rejected : LoadOutcome::Missing;
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const ParsedDocument parsed = ParseDocument(text.data(), text.size());
  const TiXmlElement* root = parsed.document ? parsed.document->RootElement() : nullptr;
  NotifyConfig read = config;
  if (root == nullptr || !ReadNotify(*root, read)) return LoadOutcome::Rejected;
  config = std::move(read);
  return LoadOutcome::Loaded;
}

void KeepRejectedFile(const std::string& path) {
  std::rename(path.c_str(), (path + ".rejected").c_str());
}

bool SaveConfigFile(const std::string& path, const TiXmlDocument& document) {
  const std::string beside = path + ".new";
  if (WriteFlushed(beside, ModeOf(path), document) &&
      std::rename(beside.c_str(), path.c_str()) == 0) {
    return true;
  }
  std::remove(beside.c_str());
  return false;
}

}  // namespace tvx
