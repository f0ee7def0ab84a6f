#include "mail/notify_file.h"

namespace tvx {
namespace {

// Small beside what the encoder reads at once: such a read goes past the buffer, without a copy.
constexpr std::size_t kBufferSize = 16u << 10;

}  // namespace

CNotifyFileImpl::CNotifyFileImpl(const std::string& path)
    : buffer_(kBufferSize), file_(std::fopen(path.c_str(), "rb")) {
  if (file_) std::setvbuf(file_.get(), buffer_.data(), _IOFBF, buffer_.size());
}

bool CNotifyFileImpl::good() const {
  return file_ && std::ferror(file_.get()) == 0;
}

std::size_t CNotifyFileImpl::read(char* buffer, std::size_t count) {
  return file_ ? std::fread(buffer, 1, count, file_.get()) : 0;
}

}  // namespace tvx
