// One message of a profile as it would be sent, and what there is to say about it.
//
// Everything that the message says is made by the plug-in's own functions.
// Threads: a plain value, its owner's.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "config/notify_config.h"
#include "mail/attachment_entry.h"
#include "preview/sample_event.h"
#include "preview/template_trace.h"
#include "text/palette.h"

namespace tvx::tool {

// The attachments of one message. Files are read when the message is composed.
struct SampleAttachments {
  std::vector<AttachmentEntry> entries;
  std::int32_t part = 0;  // 0: the only message; else from 1 to partCount
  std::int32_t partCount = 0;
};

struct Preview {
  std::int32_t profile = 0;  // its ID
  std::string description;
  // As they go to the server; as they are configured when one is no address.
  std::string from;
  std::vector<std::string> to;
  std::vector<std::string> cc;
  std::vector<std::string> bcc;
  std::string subject;                // as the header line has it
  std::string body;                   // its placeholders replaced
  std::string notes;                  // on failed attachments, behind the body
  std::vector<std::string> attached;  // names of the files
  // What became of the templates. The subject's is not yet made one line.
  Pieces subjectPieces;
  Pieces bodyPieces;
  // Faults of the profile that no placeholder shows.
  std::vector<std::string> faults;
  std::vector<std::string> remarks;
  // The message, byte for byte; empty when it cannot be composed.
  std::string message;

  // Faults, and tokens that are not replaced.
  std::size_t Findings() const;
};

// profile is one of the configuration.
Preview MakePreview(const SampleEvent& event, const SampleAttachments& attachments,
                    const std::shared_ptr<const NotifyConfig>& config,
                    const NotifyProfile& profile);

// For people: the message, indented, and what became of its placeholders. Lines of the second half
// begin with a mark: "+" replaced, "=" left as it is, "-" dropped, "!" a fault, "#" a remark.
std::string PreviewText(const Preview& preview, const Palette& palette);

// For programs: one JSON object (RFC 8259) in ASCII. Bytes that are no UTF-8 become the replacement
// character; the message file has them as they are.
std::string PreviewJson(const Preview& preview);

}  // namespace tvx::tool
