#include "simulated_host/request_check.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace tvx::tool {
namespace {

constexpr std::uint32_t kMaxLogLength = 512;  // 511 characters and the NUL

// Collects the faults of one request.
class Faults {
 public:
  explicit Faults(std::vector<std::string>& list) : list_(list) {}

  void ExpectWord(const char* field, std::uint32_t expected, std::uint32_t found) {
    if (found == expected) return;
    char text[96];
    std::snprintf(text, sizeof(text), "%s is 0x%x instead of 0x%x", field, found, expected);
    list_.emplace_back(text);
  }

  void ExpectKind(PayloadKind expected, PayloadKind found) {
    ExpectWord("payload kind", static_cast<std::uint32_t>(expected),
               static_cast<std::uint32_t>(found));
  }

  // Returns whether it holds.
  bool Expect(bool holds, const char* otherwise) {
    if (!holds) list_.emplace_back(otherwise);
    return holds;
  }

 private:
  std::vector<std::string>& list_;
};

void CheckLog(const HostRequest& request, Faults& faults) {
  if (!faults.Expect(
          request.payload != nullptr && request.length > 0 && request.length <= kMaxLogLength,
          "a log line has 1 to 512 bytes, its NUL counted")) {
    return;
  }
  const void* end = std::memchr(request.payload, 0, request.length);
  faults.Expect(end == static_cast<const char*>(request.payload) + request.length - 1,
                "the length of a log line counts its text and one NUL");
  faults.Expect(request.level == 25 || request.level == 50 || request.level == 75,
                "the level of a log line is 25, 50 or 75");
}

void CheckChunk(const HostRequest& request, Faults& faults) {
  constexpr std::uint32_t kCountingBits = 0xFFFFF;
  if (!faults.Expect(request.payload != nullptr && request.length >= sizeof(ChunkHeader) &&
                         request.length <= kMaxChunkSize,
                     "a channel chunk has 16 to 65536 bytes")) {
    return;
  }
  ChunkHeader header{};
  std::memcpy(&header, request.payload, sizeof(header));
  faults.ExpectWord("the size in a channel chunk", request.length, header.size);
  faults.ExpectWord("the upper part of a request identifier", kModuleId << 4,
                    header.request & ~kCountingBits);
  faults.Expect(header.kind == 0 || header.kind == 6,
                "a channel chunk to the host is a launch (6) or input (0)");
  if (header.kind == 0) faults.ExpectWord("the word of an input chunk", 1, header.word);
}

void CheckPayload(const HostRequest& request, Faults& faults) {
  switch (request.command) {
    case HostCommand::Log:
      faults.ExpectKind(PayloadKind::LogLine, request.payloadKind);
      return CheckLog(request, faults);
    case HostCommand::ChannelMessage:
      faults.ExpectKind(PayloadKind::None, request.payloadKind);
      return CheckChunk(request, faults);
    case HostCommand::StatusDocument:
    case HostCommand::ConfigDocument:
      faults.ExpectKind(PayloadKind::Document, request.payloadKind);
      if (faults.Expect(request.payload != nullptr && request.length > 0, "a document has text")) {
        faults.Expect(std::memchr(request.payload, 0, request.length) == nullptr,
                      "the length of a document counts its text only");
      }
      return;
    case HostCommand::Watchdog:
      faults.ExpectKind(PayloadKind::Watchdog, request.payloadKind);
      faults.Expect(request.payload == nullptr, "a watchdog event has no payload");
      return faults.ExpectWord("the length of a watchdog event", 0, request.length);
    case HostCommand::ReleaseFrame:
      faults.ExpectKind(PayloadKind::None, request.payloadKind);
      faults.Expect(request.payload != nullptr, "a frame is released by its handle");
      return faults.ExpectWord("the length of a frame release", 0, request.length);
  }
  faults.Expect(false, "the command is unknown");
}

}  // namespace

std::vector<std::string> FindRequestFaults(const HostRequest& request, const HostReply& reply) {
  std::vector<std::string> list;
  Faults faults(list);
  faults.ExpectWord("size", kHostRequestSize, request.size);
  faults.ExpectWord("version", 1, request.version);
  faults.ExpectWord("module", kModuleId, request.module);
  faults.ExpectWord("the reserved word at 20", 0, request.reserved20);
  faults.ExpectWord("the reserved word at 32", 0, request.reserved32);
  faults.ExpectWord("the reserved word at 36", 0, request.reserved36);
  if (request.command != HostCommand::Log) faults.ExpectWord("level", 0, request.level);
  std::uint32_t offset = 44;
  for (const std::uint32_t word : request.reserved44) {
    faults.ExpectWord(("the reserved word at " + std::to_string(offset)).c_str(), 0, word);
    offset += sizeof(word);
  }
  faults.ExpectWord("the size of the reply", sizeof(HostReply), reply.size);
  faults.ExpectWord("the version of the reply", 1, reply.version);
  faults.ExpectWord("the status of the reply", 0, reply.status);
  CheckPayload(request, faults);
  return list;
}

}  // namespace tvx::tool
