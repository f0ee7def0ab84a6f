#include "host/ipc_client.h"

#include <algorithm>
#include <new>

#include "base/input_limits.h"

namespace tvx {
namespace ipc {

void LineBuffer::Append(const char* bytes, std::size_t length) noexcept {
  const std::size_t unread = bytes_.size() - start_;
  try {
    bytes_.append(bytes, std::min(length, kMaxUnreadOutput - std::min(unread, kMaxUnreadOutput)));
  } catch (const std::bad_alloc&) {
    // Dropped, as what is too much: the host's thread that brings it knows no exceptions.
  }
}

bool LineBuffer::TakeLine(std::string& line) {
  const std::size_t feed = bytes_.find('\n', scanned_);
  if (feed == std::string::npos) {
    scanned_ = bytes_.size();
    return false;
  }
  std::size_t end = feed;
  if (end > start_ && bytes_[end - 1] == '\r') --end;
  line.assign(bytes_, start_, end - start_);
  Consume(feed + 1);
  return true;
}

bool LineBuffer::TakeRest(std::string& rest) {
  if (start_ == bytes_.size()) return false;
  rest.assign(bytes_, start_, std::string::npos);
  Consume(bytes_.size());
  return true;
}

// Moves the start instead of erasing at each line; the read part is dropped once it is the larger.
void LineBuffer::Consume(std::size_t end) {
  start_ = end;
  if (start_ > bytes_.size() / 2) {
    bytes_.erase(0, start_);
    start_ = 0;
  }
  scanned_ = start_;
}

}  // namespace ipc
}  // namespace tvx
