// A file of the standard library that closes itself.
//
// Threads: one at a time, its owner's. A close whose failure matters is made by hand on release().
#pragma once

#include <cstdio>
#include <memory>

namespace tvx {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

}  // namespace tvx
