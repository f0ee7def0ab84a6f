// The built plug-in in a host that costs next to nothing, and the records of its Write for loops that
// are timed: without a check or a copy in the way, what is measured is the plug-in.
#pragma once

#include <dlfcn.h>

#include <cstdint>
#include <stdexcept>
#include <string_view>

#include "support/plugin_driver.h"

namespace tvx::bench {

// Those of the built library, which stays loaded.
inline test::Exports LoadedExports(const char* path) {
  void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw std::runtime_error(dlerror());
  const auto find = [&](const char* name) {
    return reinterpret_cast<test::Export*>(dlsym(library, name));
  };
  return {find("Load"),  find("Open"), find("Close"), find("Read"),
          find("Write"), find("Seek"), find("IOCTL"), find("Unload")};
}

// One object at a time. A library that cannot be loaded ends the program by exception.
struct Plugin {
  test::FakeHost host{test::FakeHost::Memory::CountsOnly};
  test::PluginDriver driver{host, LoadedExports(NOTIFYPI_PLUGIN)};

  // The exported Write itself.
  int Write(WriteRequest& request, WriteResult& result) const {
    return driver.Functions().Write(&request, &result);
  }
};

// The record of a Write that carries an event document. The text stays the caller's.
inline WriteRequest EventRequest(std::string_view document) {
  WriteRequest request{};
  request.data = document.data();
  request.length = static_cast<std::uint32_t>(document.size());
  return request;
}

// The first of the profiles' identifiers; four digits, so that an event document has one length
// whatever profile it names.
constexpr std::int32_t kFirstProfile = 1000;

// A change to so many profiles, a motion event that names one of them, and a full system document of
// H.264 cameras whose motion notifies and whose frames carry the stream identifiers 1 to streams.
std::string ProfilesDocument(int profiles, const std::string& attributes = "",
                             const std::string& profileAttributes = "",
                             const std::string& servers = "");
std::string EventDocumentFor(std::int32_t profile);
std::string SystemDocumentOf(int streams);

}  // namespace tvx::bench
