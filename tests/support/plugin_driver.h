// The plug-in, driven through its eight exports as a host drives it: loaded with the object,
// unloaded with it, with the host's two lent threads and the books of its frames in between.
//
// What goes against the rules of the border (an export that does not return 0 or throws anything but
// memory exhaustion, a frame that never comes back) is added to the host's problems. Time is not
// driven here (base/clock.h).
//
// Threads: one at a time calls the operations, but Report, which any thread may call.
#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "host/host_records.h"
#include "support/fake_host.h"

namespace tvx::test {
using Export = int(void* request, void* result);
}
extern "C" tvx::test::Export Load, Open, Close, Read, Write, Seek, IOCTL, Unload;

namespace tvx::test {

struct Exports {
  Export *Load, *Open, *Close, *Read, *Write, *Seek, *Ioctl, *Unload;
};

// Those of the core that the program is linked with.
inline Exports LinkedExports() {
  return {::Load, ::Open, ::Close, ::Read, ::Write, ::Seek, ::IOCTL, ::Unload};
}

class PluginDriver {
 public:
  PluginDriver(FakeHost& host, const Exports& exports) : host_(host), exports_(exports) {
    Call<PluginCapabilities>("Load", exports_.Load, LoadRequest{{}, 4711, &FakeHost::Entry});
  }
  // Close and Unload, where they have not been called.
  ~PluginDriver() {
    Close();
    Unload();
  }

  void Open() { CallSafely<OpenResult>("Open", exports_.Open, ReadRequest{}); }
  void Update(std::string_view document) { Control(ControlCode::Update, document); }
  // False when memory exhaustion came back to the host as an exception, which only Write may do.
  bool Event(std::string_view document) { return WriteRecord(Record(2, 0), document).hasMemory; }
  bool Tick() { return WriteRecord(Record(32, kModuleId), {}).hasMemory; }
  // IOCTL; the payload is copied into a block of exactly its size first.
  void Control(ControlCode code, std::string_view payload = {}) {
    const auto copy = CopyOf(payload);
    const auto length = static_cast<std::uint32_t>(payload.size());
    CallSafely<IoctlResult>("IOCTL", exports_.Ioctl,
                            IoctlRequest{{}, code, {}, length, copy.get()});
  }
  // A report of a program, as IOCTL 4.
  void Report(std::string_view chunk) { Control(ControlCode::ChannelMessage, chunk); }

  // A frame in a buffer of the host's own. True when the plug-in took it.
  bool Frame(std::uint32_t stream, bool isKey, std::string_view payload = "frame") {
    return WriteRecord(Record(1, stream, isKey ? 1 : 0), payload).isTaken;
  }
  static WriteRequest Record(std::uint32_t kind, std::uint32_t addressee,
                             std::uint32_t frameType = 0) {
    WriteRequest record{};
    record.kind = static_cast<RecordKind>(kind);
    record.addressee = addressee;
    record.frameType = frameType;
    return record;
  }
  // Any record, its data and length replaced by the payload, or by null where noData says so.
  struct Written {
    bool hasMemory;
    bool isTaken;  // the frame
  };
  Written WriteRecord(WriteRequest record, std::string_view payload, bool noData = false) {
    const bool isFrame = record.kind == RecordKind::Frame && !noData;
    const auto copy = isFrame ? nullptr : CopyOf(payload);
    record.length = static_cast<std::uint32_t>(payload.size());
    record.data = isFrame ? host_.Lend(payload) : noData ? nullptr : copy.get();
    const auto [hasMemory, result] = Call<WriteResult>("Write", exports_.Write, record);
    const bool isTaken = result.frameAccepted != 0;
    if (isTaken && !isFrame) host_.AddProblem("what is no frame was taken");
    if (isFrame && !isTaken) host_.TakeBack(record.data);
    return {hasMemory, isTaken};
  }

  // Lends the threads for worker and watchdog.
  void StartLoops() {
    worker_ = std::thread([this] { Control(ControlCode::RunWorker); });
    watchdog_ = std::thread([this] {
      Call<ReadResult>("Read", exports_.Read, ReadRequest{{}, 1});
    });
  }
  // Close; the lent threads come back. Unload; all frames are back. Each once, the rest is nothing.
  void Close() {
    if (std::exchange(isClosed_, true)) return;
    CallSafely<PlainResult>("Close", exports_.Close, ReadRequest{});
    for (std::thread* thread : {&worker_, &watchdog_}) {
      if (thread->joinable()) thread->join();
    }
  }
  void Unload() {
    if (std::exchange(isUnloaded_, true)) return;
    CallSafely<PlainResult>("Unload", exports_.Unload, ReadRequest{});
    const std::size_t out = host_.FramesOut();
    if (out != 0) host_.AddProblem(std::to_string(out) + " frames never came back");
  }

  const Exports& Functions() const { return exports_; }

 private:
  // False when there was no memory.
  template <typename Result, typename Request>
  std::pair<bool, Result> Call(const char* name, Export* function, Request request) {
    Result result{};
    try {
      const Crossing in(true);
      if (function(&request, &result) != 0) host_.AddProblem(std::string(name) + " is not 0");
    } catch (const std::bad_alloc&) {
      return {false, result};
    } catch (const std::exception& error) {
      host_.AddProblem(std::string(name) + " threw: " + error.what());
    }
    return {true, result};
  }

  template <typename Result, typename Request>
  void CallSafely(const char* name, Export* function, Request request) {
    if (!Call<Result>(name, function, request).first) {
      host_.AddProblem("no memory ended " + std::string(name));
    }
  }

  FakeHost& host_;
  const Exports exports_;
  bool isClosed_ = false;
  bool isUnloaded_ = false;
  std::thread worker_;
  std::thread watchdog_;
};

}  // namespace tvx::test
