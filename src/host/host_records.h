// The records that cross the border between the host and the plug-in.
//
// Layouts are the host's binary contract for a 32-bit little-endian process; every offset that the
// plug-in touches is asserted below. Unnamed words are the host's own and are never read or
// written. On a 64-bit build (tools and thread checks only) pointers are natural and offsets move.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tvx {

// The plug-in's identifier in every record that it sends, and the "ID" of its configuration.
constexpr std::uint32_t kModuleId = 0xC0000;

// --- plug-in to host ---------------------------------------------------------------------------

enum class HostCommand : std::uint32_t {
  StatusDocument = 4,
  Watchdog = 32,
  Log = 64,
  ConfigDocument = 256,
  ReleaseFrame = 512,
  ChannelMessage = 8192,
};

enum class PayloadKind : std::uint32_t {
  None = 0,
  Watchdog = 0x1000000,
  LogLine = 0x1000002,
  Document = 0x1000010,
};

// What the plug-in hands to the host service entry. Zeroed before use; payload stays the caller's
// except for a channel message, which the host frees with free().
struct HostRequest {
  std::uint32_t size;     // always kHostRequestSize
  std::uint32_t version;  // always 1
  std::uint32_t length;   // bytes of payload
  const void* payload;    // text, channel chunk, or the handle of a frame to release
  std::uint32_t module;   // kModuleId
  std::uint32_t reserved20;
  HostCommand command;
  PayloadKind payloadKind;
  std::uint32_t reserved32;
  std::uint32_t reserved36;
  std::uint32_t level;  // log lines only
  std::uint32_t reserved44[35];
};
constexpr std::uint32_t kHostRequestSize = 184;

struct HostReply {
  std::uint32_t size;     // always 12
  std::uint32_t version;  // always 1
  std::uint32_t status;   // set by the host; 0 = success
};
static_assert(sizeof(HostReply) == 12);

// The host service entry, handed over in Load: 0 = accepted.
using HostServiceEntry = int (*)(HostRequest*, HostReply*);

// --- host to plug-in: request and result of each export ----------------------------------------

struct LoadRequest {
  std::uint32_t unused0[2];
  std::uint32_t hostWord;
  HostServiceEntry entry;
};

// The result of Load. Only the fields named here are written.
struct PluginCapabilities {
  std::uint32_t unused0[2];
  std::uint32_t module;
  std::uint32_t word12;
  std::uint32_t word16;
  std::uint32_t word20;
  std::uint32_t word24;
  std::uint32_t word28;
  std::uint32_t word32;
  std::uint32_t word36;
  std::uint32_t word40;
  std::uint32_t unused44[2];
  std::uint8_t flags52[6];
  std::uint8_t unused58[2];
  std::uint32_t word60;
};

struct ReadRequest {
  std::uint32_t unused0[3];
  std::uint8_t runWatchdog;
};

// What a Write carries, by its kind word.
enum class RecordKind : std::uint32_t { Frame = 1, Tick = 32 };

struct WriteRequest {
  std::uint32_t unused0[3];
  std::uint8_t skip;
  std::uint8_t unused13[3];
  const void* data;
  std::uint32_t length;
  std::uint32_t addressee;  // module of a tick, or the stream identifier of a frame
  std::uint32_t unused28;
  RecordKind kind;
  std::uint32_t frameType;  // 1 = key frame
  std::uint32_t unused40[2];
  std::uint32_t payloadOffset;
  std::uint8_t unused52[6];
  std::uint8_t frameFlag;
};

enum class ControlCode : std::uint32_t { RunWorker = 1, Update = 2, ChannelMessage = 4 };

struct IoctlRequest {
  std::uint32_t unused0[2];
  ControlCode code;
  std::uint32_t unused12[2];
  std::uint32_t length;
  const void* payload;
};

// One result word at offset 8 (Close, Seek, Unload).
struct PlainResult {
  std::uint32_t unused0[2];
  std::uint32_t result;
};

struct OpenResult {
  std::uint32_t unused0[2];
  std::uint32_t result;
  std::uint32_t result12;
};

struct ReadResult {
  std::uint32_t unused0[4];
  std::uint32_t result;
};

struct WriteResult {
  std::uint32_t unused0[4];
  std::uint32_t result;
  std::uint32_t frameAccepted;  // written for frames only: 1 = the plug-in keeps the buffer
};

struct IoctlResult {
  std::uint32_t unused0[3];
  std::uint32_t result;
};

// --- process channel ---------------------------------------------------------------------------

// What a chunk holds. The numbers from 1 to 5 come from the host, the others go to it.
namespace chunk_kind {
constexpr std::uint32_t kInput = 0;     // of the program
constexpr std::uint32_t kOutput = 1;    // of the program
constexpr std::uint32_t kErrors = 2;    // standard error of the program
constexpr std::uint32_t kRunning = 3;   // the program has been started
constexpr std::uint32_t kFailed = 4;    // it has not; the word is why
constexpr std::uint32_t kFinished = 5;  // it has ended; the word is its wait status
constexpr std::uint32_t kLaunch = 6;    // start a program
}  // namespace chunk_kind

// Before the payload of every channel chunk.
struct ChunkHeader {
  std::uint32_t size;  // header and payload, 16..65536
  std::uint32_t request;
  std::uint32_t kind;
  std::uint32_t word;
};
constexpr std::uint32_t kMaxChunkSize = 65536;

static_assert(std::is_trivially_copyable_v<HostRequest>);
static_assert(std::is_trivially_copyable_v<PluginCapabilities>);
static_assert(std::is_trivially_copyable_v<WriteRequest>);
static_assert(sizeof(ChunkHeader) == 16);

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(HostRequest) == kHostRequestSize);
static_assert(offsetof(HostRequest, length) == 8);
static_assert(offsetof(HostRequest, payload) == 12);
static_assert(offsetof(HostRequest, module) == 16);
static_assert(offsetof(HostRequest, command) == 24);
static_assert(offsetof(HostRequest, payloadKind) == 28);
static_assert(offsetof(HostRequest, level) == 40);
static_assert(offsetof(HostRequest, reserved44) == 44);
static_assert(offsetof(HostReply, status) == 8);

static_assert(offsetof(LoadRequest, hostWord) == 8);
static_assert(offsetof(LoadRequest, entry) == 12);
static_assert(offsetof(PluginCapabilities, module) == 8);
static_assert(offsetof(PluginCapabilities, word12) == 12);
static_assert(offsetof(PluginCapabilities, word32) == 32);
static_assert(offsetof(PluginCapabilities, word40) == 40);
static_assert(offsetof(PluginCapabilities, flags52) == 52);
static_assert(offsetof(PluginCapabilities, word60) == 60);
static_assert(offsetof(ReadRequest, runWatchdog) == 12);
static_assert(offsetof(WriteRequest, skip) == 12);
static_assert(offsetof(WriteRequest, data) == 16);
static_assert(offsetof(WriteRequest, length) == 20);
static_assert(offsetof(WriteRequest, addressee) == 24);
static_assert(offsetof(WriteRequest, kind) == 32);
static_assert(offsetof(WriteRequest, frameType) == 36);
static_assert(offsetof(WriteRequest, payloadOffset) == 48);
static_assert(offsetof(WriteRequest, frameFlag) == 58);
static_assert(offsetof(IoctlRequest, code) == 8);
static_assert(offsetof(IoctlRequest, length) == 20);
static_assert(offsetof(IoctlRequest, payload) == 24);
static_assert(offsetof(PlainResult, result) == 8);
static_assert(offsetof(OpenResult, result12) == 12);
static_assert(offsetof(ReadResult, result) == 16);
static_assert(offsetof(WriteResult, result) == 16);
static_assert(offsetof(WriteResult, frameAccepted) == 20);
static_assert(offsetof(IoctlResult, result) == 12);
#endif

}  // namespace tvx
