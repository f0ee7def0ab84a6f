#include "simulated_host/plugin_library.h"

#include <dlfcn.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include "simulated_host/result_record.h"

namespace tvx::tool {
namespace {

// Any value will do: the plug-in stores it and nothing more.
constexpr std::uint32_t kHostWord = 0x484F5354;

// An event document is what is neither a frame nor addressed to the plug-in.
constexpr auto kEventKind = static_cast<RecordKind>(2);

void* OpenLibrary(const std::string& path) {
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw PluginError(std::string("cannot load the plug-in: ") + dlerror());
  return library;
}

void SetCapabilities(PluginCapabilities& capabilities) {
  capabilities.module = kModuleId;
  capabilities.word12 = 0x200006C;
  capabilities.word16 = 0;
  capabilities.word20 = 0x2000010;
  capabilities.word24 = 0;
  capabilities.word28 = 0;
  capabilities.word32 = 0x3000000;
  capabilities.word36 = 0;
  capabilities.word40 = 0;
  const std::uint8_t flags[6] = {1, 0, 1, 1, 0, 0};
  std::memcpy(capabilities.flags52, flags, sizeof(flags));
  capabilities.word60 = 0;
}

// A copy of exactly the document's size, so that a read behind its end is one that memory checkers
// can see.
std::vector<char> WithoutTerminator(const std::string& text) {
  std::vector<char> bytes(text.begin(), text.end());
  bytes.shrink_to_fit();
  return bytes;
}

template <typename Record>
std::string_view BytesOf(const Record& record) {
  return {reinterpret_cast<const char*>(&record), sizeof(record)};
}

// What the host tells of a program, by the kind of the chunk.
const char* ReportName(std::uint32_t kind) {
  constexpr const char* kNames[] = {"?", "output", "errors", "running", "not started", "ended"};
  return kind < std::size(kNames) ? kNames[kind] : "?";
}

}  // namespace

std::string PluginBesideCommand(const char* name) {
  namespace fs = std::filesystem;
  const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();
  const fs::path installed = folder.parent_path() / "lib/notifypi" / name;
  return (fs::exists(installed) && !fs::exists(folder / name) ? installed : folder / name).string();
}

void PluginLibrary::Closer::operator()(void* library) const {
  dlclose(library);
}

PluginLibrary::PluginLibrary(const std::string& path, Timeline& timeline)
    : timeline_(timeline),
      path_(path),
      library_(OpenLibrary(path)),
      load_(Find("Load")),
      open_(Find("Open")),
      close_(Find("Close")),
      read_(Find("Read")),
      write_(Find("Write")),
      seek_(Find("Seek")),
      ioctl_(Find("IOCTL")),
      unload_(Find("Unload")) {}

PluginLibrary::~PluginLibrary() {
  library_.reset();
  if (dlopen(path_.c_str(), RTLD_NOW | RTLD_NOLOAD) != nullptr) {
    timeline_.Record(Fault{"the library is still loaded after dlclose"});
  }
}

PluginLibrary::Export PluginLibrary::Find(const char* name) const {
  void* address = dlsym(library_.get(), name);
  if (address == nullptr) throw PluginError(std::string("the plug-in has no export ") + name);
  return reinterpret_cast<Export>(address);
}

template <typename Request, typename Result>
int PluginLibrary::CallQuietly(const char* name, Export function, const Request& request,
                               Result& result, std::string& breach) {
  // Compared as bytes, so that padding counts too.
  using Bytes = std::array<unsigned char, sizeof(Request)>;
  Bytes before{};
  std::memcpy(before.data(), &request, sizeof(request));
  alignas(Request) Bytes passed = before;
  const int returned = function(passed.data(), result.Address());
  if (returned != 0) {
    timeline_.Record(
        Fault{std::string(name) + " returned " + std::to_string(returned) + " instead of 0"});
  }
  breach = result.Difference();
  if (!breach.empty()) timeline_.Record(Fault{std::string(name) + ": " + breach});
  if (passed != before) {
    timeline_.Record(Fault{std::string(name) + " changed its request record"});
  }
  return returned;
}

template <typename Request, typename Result>
void PluginLibrary::Call(const char* name, Export function, const Request& request, Result& result,
                         const CallPurpose& purpose) {
  const std::uint32_t number = ++calls_;
  timeline_.Record(
      CallBegin{number, name, purpose.text, BytesOf(request), purpose.payload, purpose.chunk});
  const auto begin = std::chrono::steady_clock::now();
  std::string breach;
  const int returned = CallQuietly(name, function, request, result, breach);
  const std::chrono::duration<double> lasted = std::chrono::steady_clock::now() - begin;
  timeline_.Record(
      CallEnd{number, name, BytesOf(result.Found()), returned, lasted.count(), breach});
}

void PluginLibrary::SetClockSpeed(double speed) {
  void* address = dlsym(library_.get(), "SetClockSpeed");
  if (address == nullptr)
    throw PluginError("the clocks of this plug-in cannot be driven: " + path_);
  reinterpret_cast<void (*)(double)>(address)(speed);
}

void PluginLibrary::Load(HostServiceEntry entry) {
  LoadRequest request{};
  request.hostWord = kHostWord;
  request.entry = entry;
  ResultRecord<PluginCapabilities> result;
  SetCapabilities(result.Expected());
  Call("Load", load_, request, result, {"the host's word and its service entry", {}});
}

void PluginLibrary::Open() {
  ResultRecord<OpenResult> result;
  result.Expected().result = 0;
  result.Expected().result12 = 0;
  Call("Open", open_, PlainResult{}, result);
}

void PluginLibrary::CallPlain(const char* name, Export function) {
  ResultRecord<PlainResult> result;
  result.Expected().result = 0;
  Call(name, function, PlainResult{}, result);
}

void PluginLibrary::Close() {
  CallPlain("Close", close_);
}
void PluginLibrary::Seek() {
  CallPlain("Seek", seek_);
}
void PluginLibrary::Unload() {
  CallPlain("Unload", unload_);
}

void PluginLibrary::RunWatchdog() {
  ReadRequest request{};
  request.runWatchdog = 1;
  ResultRecord<ReadResult> result;
  result.Expected().result = 0;
  Call("Read", read_, request, result, {"lends the watchdog its thread", {}});
}

void PluginLibrary::CallIoctl(const char* name, ControlCode code, const void* payload,
                              std::uint32_t length, const CallPurpose& purpose) {
  IoctlRequest request{};
  request.code = code;
  request.payload = payload;
  request.length = length;
  ResultRecord<IoctlResult> result;
  result.Expected().result = 0;
  Call(name, ioctl_, request, result, purpose);
}

void PluginLibrary::RunWorker() {
  CallIoctl("IOCTL 1", ControlCode::RunWorker, nullptr, 0, {"lends the worker its thread", {}});
}

void PluginLibrary::SendUpdate(const std::string& document) {
  const std::vector<char> bytes = WithoutTerminator(document);
  CallIoctl("IOCTL 2", ControlCode::Update, bytes.data(), static_cast<std::uint32_t>(bytes.size()),
            {"document of " + std::to_string(bytes.size()) + " bytes", document});
}

void PluginLibrary::SendChunk(const void* chunk, std::uint32_t size) {
  ChunkHeader header{};
  std::memcpy(&header, chunk, sizeof(header));
  char text[96];
  std::snprintf(text, sizeof(text), "program 0x%x: %s, word %u, %u bytes", header.request,
                ReportName(header.kind), header.word, static_cast<unsigned>(size - sizeof(header)));
  CallIoctl(
      "IOCTL 4", ControlCode::ChannelMessage, chunk, size,
      {text, {static_cast<const char*>(chunk) + sizeof(header), size - sizeof(header)}, &header});
}

void PluginLibrary::SendEvent(const std::string& document) {
  const std::vector<char> bytes = WithoutTerminator(document);
  WriteRequest request{};
  request.data = bytes.data();
  request.length = static_cast<std::uint32_t>(bytes.size());
  request.kind = kEventKind;
  ResultRecord<WriteResult> result;
  result.Expected().result = 0;
  Call("Write of an event", write_, request, result,
       {"document of " + std::to_string(bytes.size()) + " bytes", document});
}

bool PluginLibrary::SendFrame(const Frame& frame) {
  WriteRequest request{};
  request.data = frame.handle;
  request.length = frame.size;
  request.addressee = frame.stream;
  request.kind = RecordKind::Frame;
  request.frameType = frame.key ? 1 : 0;
  request.payloadOffset = frame.payloadOffset;
  ResultRecord<WriteResult> result;
  result.Expected().result = 0;
  result.ExpectFlag(&WriteResult::frameAccepted);
  std::string breach;
  CallQuietly("Write of a frame", write_, request, result, breach);
  const bool taken = result.Found().frameAccepted != 0;
  timeline_.Record(FrameWrite{frame.stream, frame.size, frame.key, taken});
  return taken;
}

void PluginLibrary::SendTick() {
  WriteRequest request{};
  request.addressee = kModuleId;
  request.kind = RecordKind::Tick;
  ResultRecord<WriteResult> result;
  result.Expected().result = 0;
  std::string breach;
  timeline_.Record(TickWrite{CallQuietly("Write of a tick", write_, request, result, breach)});
}

}  // namespace tvx::tool
