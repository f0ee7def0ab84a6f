#include "video/attachment_preparation.h"

#include <limits.h>

#include <algorithm>
#include <boost/filesystem/path.hpp>
#include <cstdio>
#include <cstring>
#include <locale>
#include <sstream>
#include <utility>

#include "base/clock.h"
#include "base/utf8.h"
#include "log/host_log.h"
#include "video/clip_file.h"

namespace tvx {
namespace {

namespace fs = boost::filesystem;

// A display name as a file name that every receiving system can store, and this one.
std::string FileName(const std::string& displayName, const StreamFormat& format) {
  const char* const extension = format.Standard != standard::kJpeg ? ".mov" : ".jpg";
  std::string name = displayName.empty() ? "default" : displayName;
  name.resize(Utf8Prefix(name, NAME_MAX - std::strlen(extension)));
  for (char& c : name) {
    const bool isControl = static_cast<unsigned char>(c) < 0x20;
    if (isControl || std::strchr("/?<>\\:*|\"", c) != nullptr) c = '_';
  }
  return name + extension;
}

// The stem is written as the path library writes one, in quotes; with those around it the message
// has them doubled, which is how it is known.
std::string FailureText(const fs::path& path, const std::string& error) {
  std::ostringstream text;
  text << "Failed to prepare video attachment for source: \"" << path.stem() << "\", " << error;
  return text.str();
}

// Milliseconds as seconds with three decimals.
std::string Seconds(std::uint32_t milliseconds) {
  char text[32];
  std::snprintf(text, sizeof(text), "%u.%03u", static_cast<unsigned>(milliseconds / 1000),
                static_cast<unsigned>(milliseconds % 1000));
  return text;
}

std::string AttachmentLine(const std::string& path, const CVideoEmailStream& clip) {
  const VideoBuffer& contents = clip.Contents();
  const std::int32_t preview = TickDifference(clip.TriggerTime(), contents.OldestTime());
  const std::uint32_t length = std::max(contents.Span(), 1u);
  // One is added to the frames: the last one is shown for a while, too.
  const std::uint32_t framesPerSecond = (contents.Frames() + 1) * 1000 / length;
  std::ostringstream line;
  line.imbue(std::locale::classic());  // the host may have set one that parts thousands
  line << "Attachment " << path << ", preview "
       << Seconds(preview < 0 ? 0 : static_cast<std::uint32_t>(preview)) << ", length "
       << Seconds(length) << ", frames " << contents.Frames() << ", Gop size "
       << contents.Groups().front().frames.size() << ", fps " << framesPerSecond << ", sizeKB "
       << (contents.Bytes() >> 10);
  return line.str();
}

}  // namespace

AttachmentGroups PrepareVideoAttachments(const std::vector<AttachmentSource>& sources,
                                         std::uint32_t sizeLimit, const std::string& directory,
                                         HostServiceEntry host,
                                         const std::function<bool(const std::string&)>& onFile) {
  AttachmentGroups groups(1);
  std::uint64_t groupBytes = 0;
  for (const AttachmentSource& source : sources) {
    if (source.clip == nullptr) continue;
    const VideoBuffer& contents = source.clip->Contents();
    const fs::path path = fs::path(directory) / FileName(source.name, contents.Format());
    AttachmentFile file{path.string(), {}};
    if (!WriteClipFile(file, *source.clip, host)) {
      groups.back().push_back({false, file.path, FailureText(path, file.error)});
      continue;
    }
    bool areMoreWanted = false;
    try {
      areMoreWanted = onFile(file.path);
    } catch (...) {
      std::remove(file.path.c_str());  // nobody else knows of it
      throw;
    }
    groupBytes += contents.Bytes();
    if (sizeLimit != 0 && groupBytes > sizeLimit && !groups.back().empty()) {
      groups.emplace_back();
      groupBytes = contents.Bytes();
    }
    groups.back().push_back({true, file.path, {}});
    HostLog(kModuleId, host, LogLevel::Information, "%s",
            AttachmentLine(file.path, *source.clip).c_str());
    if (!areMoreWanted) break;
  }
  return groups;
}

}  // namespace tvx
