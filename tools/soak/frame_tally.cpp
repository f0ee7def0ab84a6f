#include "soak/frame_tally.h"

#include <cstring>

namespace tvx::soak {
namespace {

constexpr std::uint64_t kMark = 0x6672616D65206F75;

struct Record {
  std::uint64_t mark;
  std::uint64_t size;
};
static_assert(sizeof(Record) <= kHostRecordSize);

std::atomic<FrameTally*> current{nullptr};
std::atomic<HostServiceEntry> nextEntry{nullptr};

}  // namespace

void FrameTally::Mark(std::uint8_t* buffer, std::size_t size) {
  const Record record{kMark, size};
  std::memset(buffer, 0, kHostRecordSize);
  std::memcpy(buffer, &record, sizeof(record));
}

void FrameTally::Taken(std::size_t size) {
  ++held_;
  heldBytes_ += static_cast<std::int64_t>(size);
}

void FrameTally::GivenBack(const void* handle) {
  Record record{};
  std::memcpy(&record, handle, sizeof(record));
  if (record.mark != kMark) return;
  --held_;
  heldBytes_ -= static_cast<std::int64_t>(record.size);
}

HostServiceEntry FrameTally::CountBefore(HostServiceEntry next) {
  current = this;
  nextEntry = next;
  return &Entry;
}

int FrameTally::Entry(HostRequest* request, HostReply* reply) {
  if (request != nullptr && request->command == HostCommand::ReleaseFrame &&
      request->payload != nullptr) {
    current.load()->GivenBack(request->payload);
  }
  return nextEntry.load()(request, reply);
}

}  // namespace tvx::soak
