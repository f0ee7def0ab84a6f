// The file that a movie is written to: forwards in large blocks, with room left at its start for
// what is known last.
//
// Owns:    the descriptor and, until Commit, a file of another name beside the path: a half-written
//          movie never has the name that others look for. It goes with the object.
// Limits:  one block of memory (kBlock) while open, whatever the length of the movie.
// Threads: one at a time: those of the movie writer that owns it.
// Errors:  Open answers with errno; all else throws std::system_error. After a throw only Discard
//          and destruction are left.
// Durability: nothing is forced to the disk. The file is read back by this very process and removed
//          when it has been sent; after a power failure nobody would look for it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "quicktime/byte_view.h"

struct iovec;

namespace quicktime {

class OutputFile {
 public:
  // Short pieces are gathered to blocks of this many bytes: enough to make calls to the system
  // rare, and few enough to stay in the processor's cache until they are written.
  static constexpr std::size_t kBlock = std::size_t{512} << 10;
  // A piece of this many goes to the system from where it is.
  static constexpr std::size_t kLongPiece = std::size_t{128} << 10;

  OutputFile() = default;
  ~OutputFile() { Discard(); }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // 0 or errno. The file is for this user alone. What is at the path and is no regular file (a
  // device) is written in place.
  int Open(const std::string& path);
  bool IsOpen() const { return descriptor_ >= 0; }

  // Appending begins this many bytes into the file. Before the first Append only.
  void LeaveRoom(std::size_t bytes);

  void Append(ByteView bytes) {
    if (bytes.size < kLongPiece && bytes.size <= kBlock - buffered_) {
      Buffer(bytes);
    } else {
      WriteBlockAnd(bytes);
    }
  }
  void AppendU32(std::uint32_t value);

  // Length of the file so far, the room at its start included.
  std::uint64_t Position() const { return written_ + buffered_; }

  // Moves what was appended behind the room so many bytes back, which makes the room longer.
  void MoveBack(std::size_t room, std::size_t bytes);

  // Writes everything out, then these bytes over the start of the file; after that, only Commit.
  void FillRoom(ByteView bytes);

  // Closes the file and gives it its name.
  void Commit();

  // Closes and removes the file; never throws. Nothing happens when none is open.
  void Discard() noexcept;

 private:
  void GoTo(std::uint64_t position);
  void Buffer(ByteView bytes);
  void WriteBlockAnd(ByteView bytes);
  void WriteAll(iovec* pieces, int count);
  [[noreturn]] void Fail(int error, const char* what) const;

  int descriptor_ = -1;
  std::string path_;
  std::string partialPath_;  // empty when written in place
  std::unique_ptr<std::uint8_t[]> buffer_;
  std::size_t buffered_ = 0;
  std::uint64_t written_ = 0;  // where in the file the buffer's content goes
};

}  // namespace quicktime
