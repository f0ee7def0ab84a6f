// How much the plug-in takes from outside: from the host's documents, from programs, from the web
// server. All in one place, since together they bound what a hostile or broken sender can cost the
// host: memory (a 32-bit process has little, and most of it is the host's), stack and time.
//
// Not here: what the configuration sets (notify_config.h), what the host's interface fixes
// (host_records.h, host_log.h), and the bytes of a frame history (video_buffer_set.h).
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace tvx {

// A document of the host, and notify.xml. The bytes are copied, and the tree takes many times as
// much: ten thousand cameras need about 8 MB and some 700,000 nodes.
constexpr std::size_t kMaxDocumentBytes = 16u << 20;

// From this size on the memory that a document's tree took is given back to the system at once.
constexpr std::size_t kLargeDocumentBytes = 1u << 20;

// Elements, attributes, texts, comments and the like of a document. Each costs the library an object,
// however short it is.
constexpr int kMaxNodes = 1'000'000;

// Levels of a document's elements. The library recurses once a level, on the host's stack.
constexpr int kMaxNesting = 256;

// Attributes of one element; the host's have a dozen. The library looks each one up among all those
// before it.
constexpr int kMaxAttributes = 64;

// A web server's answer, header and body together. A login answer is a few kilobytes, even with
// hundreds of systems.
constexpr std::size_t kHttpAnswerLimit = 1u << 20;

// For the whole exchange with the web server, as the mail waits for it.
constexpr std::chrono::milliseconds kHttpDeadline{10000};

// Bytes kept of each output stream of a program and not read yet. What a program writes beyond
// that, faster than it is read, is dropped.
constexpr std::size_t kMaxUnreadOutput = 4u << 20;

// A fact of the host's documents (a name, a serial number) in a message or a log line.
constexpr std::size_t kMaxFactBytes = 4096;

// Frames of one history, and of one clip. Frames may be tiny, and each costs the host a buffer and
// every clip a reference.
constexpr std::size_t kMaxHistoryFrames = 50'000;

// Video held by notifications that wait for their clips or for the worker: the frames, each once,
// and the references to them. Beyond it the oldest clips are let go.
constexpr std::uint64_t kMaxWaitingVideoBytes = std::uint64_t{256} << 20;

// Notifications that wait for their clips or for the worker. Beyond it the oldest ones end unsent.
constexpr std::size_t kMaxWaitingNotifications = 20'000;

// Bytes of a transfer's output that are kept until its end, to be logged when it failed.
constexpr std::size_t kMaxTransferOutput = 4u << 20;

}  // namespace tvx
