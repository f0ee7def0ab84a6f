#include "config/config_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tinyxml.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "base/input_limits.h"
#include "config/notify_read_observer.h"
#include "config/notify_reader.h"
#include "config/xml_document.h"

namespace tvx {
namespace {

constexpr mode_t kPrivate = S_IRUSR | S_IWUSR;

// Only regular files are asked for, so a pipe in their place must not be waited for.
constexpr int kCareful = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

struct FreeText {
  void operator()(char* text) const { std::free(text); }
};
using Text = std::unique_ptr<char, FreeText>;

// Where the file itself lies, behind all links; the path itself when that is nowhere yet.
std::string Resolved(const std::string& path) {
  const Text resolved(::realpath(path.c_str(), nullptr));
  if (!resolved && errno == ENOMEM) throw std::bad_alloc();
  return resolved ? resolved.get() : path;
}

// Writes all of it and closes the descriptor. 0, or the errno of what failed.
int Write(int descriptor, const std::string& text) {
  int error = 0;
  for (std::size_t at = 0; at < text.size() && error == 0;) {
    const ssize_t count = ::write(descriptor, &text[at], text.size() - at);
    if (count > 0) at += static_cast<std::size_t>(count);
    if (count < 0 && errno != EINTR) error = errno;
  }
  if (error == 0 && ::fsync(descriptor) != 0) error = errno;
  return ::close(descriptor) != 0 && error == 0 ? errno : error;
}

// Writes a new file with the owner and the permissions of the old one, if there is an old one, and
// puts it into its place.
int WriteBeside(const std::string& path, const struct stat* old, const std::string& text) {
  const std::string beside = path + ".new";
  struct stat leftover {};
  // Of an earlier process, which died. Something else in its place is nobody's to remove.
  if (::lstat(beside.c_str(), &leftover) == 0 && S_ISREG(leftover.st_mode)) {
    ::unlink(beside.c_str());
  }
  // Private from the first byte; opened up, if at all, only as far as the file that it replaces.
  const int descriptor =
      ::open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | kCareful, kPrivate);
  if (descriptor < 0) return errno;
  // Goes with the scope unless it has taken its place, also when memory runs out while it is
  // written.
  struct Removal {
    ~Removal() { ::unlink(path.c_str()); }
    const std::string& path;
  } removal{beside};
  if (old != nullptr) {
    struct stat status {};
    const bool isSameOwners = ::fstat(descriptor, &status) == 0 && status.st_uid == old->st_uid &&
                              status.st_gid == old->st_gid;
    if (!isSameOwners && ::fchown(descriptor, old->st_uid, old->st_gid) != 0) {
      ::close(descriptor);
      return EPERM;
    }
    // A file system without permissions refuses; then there is nothing to keep either.
    static_cast<void>(::fchmod(descriptor, old->st_mode & 07777u));
  }
  const int error = Write(descriptor, text);
  if (error != 0) return error;
  return ::rename(beside.c_str(), path.c_str()) == 0 ? 0 : errno;
}

int WriteInPlace(const std::string& path, const std::string& text) {
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | kCareful, kPrivate);
  if (descriptor < 0) return errno;
  errno = 0;
  struct stat status {};
  const bool fits = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) &&
                    ::ftruncate(descriptor, 0) == 0;
  if (fits) return Write(descriptor, text);
  const int error = errno != 0 ? errno : EINVAL;
  ::close(descriptor);
  return error;
}

// Whether a failure says that the file cannot be replaced, rather than that it cannot be written.
bool IsReplacementRefused(int error) {
  return error == EACCES || error == EPERM || error == EROFS || error == EEXIST || error == EBUSY ||
         error == EXDEV;
}

constexpr const char* kNoRegularFile = "it is no regular file";

ConfigDocument Failure(int error) {
  return {LoadOutcome::Failed, nullptr, {std::strerror(error)}};
}

}  // namespace

ConfigDocument ReadConfigFile(const std::string& path, Positions positions) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | kCareful);
  if (descriptor < 0) {
    if (errno == ENOENT) return {};
    // A socket cannot be opened at all.
    return errno == ENXIO ? ConfigDocument{LoadOutcome::Rejected, nullptr, {kNoRegularFile}}
                          : Failure(errno);
  }
  struct Closing {
    ~Closing() { ::close(descriptor); }
    const int descriptor;
  } closing{descriptor};
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return Failure(errno);
  if (!S_ISREG(status.st_mode)) return {LoadOutcome::Rejected, nullptr, {kNoRegularFile}};
  if (static_cast<std::uint64_t>(status.st_size) > kMaxDocumentBytes) {
    return {LoadOutcome::Rejected, nullptr, {RefusalReason(ParseOutcome::TooLarge)}};
  }
  // One byte more than there should be, so that the end is seen.
  std::string text(static_cast<std::size_t>(status.st_size) + 1, '\0');
  std::size_t length = 0;
  for (;;) {
    const ssize_t count = ::read(descriptor, &text[length], text.size() - length);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return Failure(errno);
    if (count == 0) break;
    length += static_cast<std::size_t>(count);
    if (length == text.size()) text.resize(2 * text.size());
    if (length > kMaxDocumentBytes) break;
  }
  ParsedDocument parsed = ParseDocument(text.data(), length, positions);
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
  // The file behind a link, which stays: what is saved next goes to where it points.
  const std::string rejected = Resolved(path);
  return std::rename(rejected.c_str(), (rejected + ".rejected").c_str()) == 0;
}

int SaveConfigFile(const std::string& path, const std::string& text) {
  const std::string target = Resolved(path);
  struct stat old {};
  const bool isThere = ::lstat(target.c_str(), &old) == 0;
  if (isThere && S_ISLNK(old.st_mode)) return WriteInPlace(target, text);  // to nowhere yet
  const int error = WriteBeside(target, isThere ? &old : nullptr, text);
  return isThere && IsReplacementRefused(error) ? WriteInPlace(target, text) : error;
}

const char* WhyNotReadAgain(std::string text) {
  return RefusalReason(CheckMarkup(&text[0], text.size()));
}

}  // namespace tvx
