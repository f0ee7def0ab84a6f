#include "support/plugin_driver.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <new>

namespace tvx::test {
namespace {

// A block of exactly this size, so that reading beyond it is noticed.
std::unique_ptr<char[]> Copy(std::string_view bytes) {
  std::unique_ptr<char[]> copy(new char[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), copy.get());
  return copy;
}

}  // namespace

PluginDriver::PluginDriver(FakeHost& host, const Exports& exports)
    : host_(host), exports_(exports) {
  LoadRequest request{{}, 4711, &FakeHost::Entry};
  PluginCapabilities capabilities{};
  Call("Load", exports_.Load, request, capabilities);
}

PluginDriver::~PluginDriver() {
  Close();
  Unload();
}

template <typename Request, typename Result>
bool PluginDriver::Call(const char* name, Export function, Request& request, Result& result) {
  try {
    const Crossing in(true);
    const int returned = function(&request, &result);
    if (returned != 0) host_.AddProblem(std::string(name) + " did not return 0");
  } catch (const std::bad_alloc&) {
    return false;
  } catch (const std::exception& error) {
    host_.AddProblem(std::string(name) + " threw: " + error.what());
  }
  return true;
}

bool PluginDriver::Open() {
  ReadRequest request{};
  OpenResult result{};
  return Call("Open", exports_.Open, request, result);
}

void PluginDriver::StartLoops() {
  worker_ = std::thread([this] { Control(ControlCode::RunWorker); });
  watchdog_ = std::thread([this] {
    ReadRequest request{};
    request.runWatchdog = 1;
    ReadResult result{};
    Call("Read", exports_.Read, request, result);
  });
}

void PluginDriver::Close() {
  if (isClosed_) return;
  isClosed_ = true;
  ReadRequest request{};
  PlainResult result{};
  if (!Call("Close", exports_.Close, request, result)) host_.AddProblem("no memory ended Close");
  for (std::thread* thread : {&worker_, &watchdog_}) {
    if (thread->joinable()) thread->join();
  }
}

void PluginDriver::Unload() {
  if (isUnloaded_) return;
  isUnloaded_ = true;
  ReadRequest request{};
  PlainResult result{};
  if (!Call("Unload", exports_.Unload, request, result)) host_.AddProblem("no memory ended Unload");
  if (host_.FramesOut() != 0) {
    host_.AddProblem(std::to_string(host_.FramesOut()) + " frames never came back");
  }
}

bool PluginDriver::Control(ControlCode code, std::string_view payload) {
  const auto copy = Copy(payload);
  IoctlRequest request{};
  request.code = code;
  request.payload = copy.get();
  request.length = static_cast<std::uint32_t>(payload.size());
  IoctlResult result{};
  return Call("IOCTL", exports_.Ioctl, request, result);
}

bool PluginDriver::Event(std::string_view document) {
  WriteRequest record{};
  record.kind = static_cast<RecordKind>(2);
  return WriteRecord(record, document).hasMemory;
}

bool PluginDriver::Tick() {
  WriteRequest record{};
  record.kind = RecordKind::Tick;
  record.addressee = kModuleId;
  return WriteRecord(record, {}).hasMemory;
}

bool PluginDriver::Frame(std::uint32_t stream, bool isKey, std::string_view payload) {
  WriteRequest record{};
  record.kind = RecordKind::Frame;
  record.addressee = stream;
  record.frameType = isKey ? 1 : 0;
  return WriteRecord(record, payload).isTaken;
}

PluginDriver::Written PluginDriver::WriteRecord(WriteRequest record, std::string_view payload,
                                                bool noData) {
  record.length = static_cast<std::uint32_t>(payload.size());
  WriteResult result{};
  if (record.kind != RecordKind::Frame || noData) {
    const auto copy = Copy(payload);
    record.data = noData ? nullptr : copy.get();
    const bool hasMemory = Call("Write", exports_.Write, record, result);
    if (result.frameAccepted != 0) host_.AddProblem("what is no frame was taken");
    return {hasMemory, false};
  }
  record.data = host_.Lend(payload);
  const bool hasMemory = Call("Write of a frame", exports_.Write, record, result);
  if (result.frameAccepted == 0) host_.TakeBack(record.data);
  return {hasMemory, result.frameAccepted != 0};
}

}  // namespace tvx::test
