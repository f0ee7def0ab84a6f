// A folder that stands for the server's working folder, so that the plug-in changes nothing there.
//
// It holds a copy of notify.xml, which the plug-in writes anew, no data/, which it clears, and links
// to everything else.
//
// Owns:    the folder, below that for temporary files, which goes with this object.
// Threads: its owner's; Remove may be called from any.
#pragma once

#include <string>

namespace tvx::tool {

class WorkingCopy {
 public:
  // Of this folder. notify.xml is copied from the path, and is not there when that is empty. Throws
  // std::runtime_error, which names the file, for what cannot be copied.
  WorkingCopy(const std::string& folder, const std::string& configuration);
  ~WorkingCopy() { Remove(); }
  WorkingCopy(const WorkingCopy&) = delete;
  WorkingCopy& operator=(const WorkingCopy&) = delete;

  const std::string& Path() const { return path_; }

  // For a process that ends without destructors. What cannot be removed stays.
  void Remove() const;

 private:
  void Fill(const std::string& folder, const std::string& configuration) const;

  std::string path_;
};

}  // namespace tvx::tool
