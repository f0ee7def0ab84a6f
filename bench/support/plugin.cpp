#include "support/plugin.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "support/quiet_host.h"

namespace tvx::bench {
namespace {

void* OpenLibrary() {
  if (void* library = dlopen(NOTIFYPI_PLUGIN, RTLD_NOW | RTLD_LOCAL)) return library;
  std::fprintf(stderr, "cannot load the plug-in: %s\n", dlerror());
  std::exit(2);
}

}  // namespace

Plugin::Plugin() : library_(OpenLibrary()), write_(Find("Write")) {
  LoadRequest request{};
  request.entry = &QuietHost::Entry;
  PluginCapabilities result{};
  Find("Load")(&request, &result);
}

Plugin::~Plugin() {
  PlainResult result{};
  Find("Unload")(nullptr, &result);
  dlclose(library_);
}

Plugin::Export Plugin::Find(const char* name) const {
  return reinterpret_cast<Export>(dlsym(library_, name));
}

void Plugin::Open() {
  OpenResult result{};
  Find("Open")(nullptr, &result);
}

void Plugin::Close() {
  PlainResult result{};
  Find("Close")(nullptr, &result);
}

void Plugin::RunWatchdog() {
  ReadRequest request{};
  request.runWatchdog = 1;
  ReadResult result{};
  Find("Read")(&request, &result);
}

void Plugin::Control(ControlCode code, const void* payload, std::uint32_t length) {
  IoctlRequest request{};
  request.code = code;
  request.payload = payload;
  request.length = length;
  IoctlResult result{};
  Find("IOCTL")(&request, &result);
}

void Plugin::RunWorker() {
  Control(ControlCode::RunWorker, nullptr, 0);
}

void Plugin::Update(const std::string& document) {
  Control(ControlCode::Update, document.data(), static_cast<std::uint32_t>(document.size()));
}

void Plugin::Report(const void* chunk, std::uint32_t size) {
  Control(ControlCode::ChannelMessage, chunk, size);
}

void Plugin::WriteEvent(std::string_view document) {
  WriteRequest request = EventRequest(document);
  WriteResult result{};
  Write(request, result);
}

WriteRequest EventRequest(std::string_view document) {
  WriteRequest request{};
  request.data = document.data();
  request.length = static_cast<std::uint32_t>(document.size());
  return request;
}

}  // namespace tvx::bench
