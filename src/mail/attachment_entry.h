// One prepared attachment of a message, or the note that tells why there is none.
// Threads: a plain value, its owner's.
#pragma once

#include <string>

namespace tvx {

struct AttachmentEntry {
  bool include = false;  // the file at path becomes a part of the message
  std::string path;      // its extension decides the content type
  std::string note;      // a line for the reader; empty when there is nothing to say
};

}  // namespace tvx
