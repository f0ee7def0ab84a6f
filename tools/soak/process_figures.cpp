#include "soak/process_figures.h"

#include <malloc.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

namespace tvx::soak {
namespace {

namespace fs = std::filesystem;

int CountEntries(const char* folder) {
  std::error_code error;
  return static_cast<int>(std::distance(fs::directory_iterator(folder, error), {}));
}

std::int64_t ResidentBytes() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word != "VmRSS:") continue;
    std::int64_t kilobytes = 0;
    status >> kilobytes;
    return kilobytes * 1024;
  }
  return 0;
}

// Children are listed with the thread that started them.
int CountChildren() {
  int children = 0;
  std::error_code error;
  for (const fs::directory_entry& task : fs::directory_iterator("/proc/self/task", error)) {
    std::ifstream list(task.path() / "children");
    children += static_cast<int>(std::distance(std::istream_iterator<std::string>(list),
                                               std::istream_iterator<std::string>()));
  }
  return children;
}

}  // namespace

ProcessFigures ReadProcessFigures() {
  ProcessFigures figures;
  figures.residentBytes = ResidentBytes();
  const struct mallinfo2 heap = mallinfo2();
  figures.allocatedBytes =
      static_cast<std::int64_t>(heap.uordblks) + static_cast<std::int64_t>(heap.hblkhd);
  // Less the one that the folder is read with.
  figures.descriptors = CountEntries("/proc/self/fd") - 1;
  figures.threads = CountEntries("/proc/self/task");
  figures.children = CountChildren();
  return figures;
}

}  // namespace tvx::soak
