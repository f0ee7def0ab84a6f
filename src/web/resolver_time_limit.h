// Bounds how long the C library's resolver waits for name servers on this thread.
//
// getaddrinfo cannot be interrupted. Running it on a thread of its own moves the wait without
// ending it: the thread must be joined before the library may be unloaded. But the resolver keeps
// its time-outs in a record per thread (_res, resolv.conf(5) "timeout" and "attempts"), which it
// obeys when they have been changed. This lowers them for a scope and puts them back.
//
// Threads: acts on the thread that makes it, which is the one that must destroy it. The host lends
//          that thread, so nothing of it is left changed.
// Errors:  none; a resolver that cannot be set up keeps its own time-outs.
#pragma once

#include <chrono>

namespace tvx {

class ResolverTimeLimit {
 public:
  // Look-ups of this thread end within about this time, counted in whole seconds and at least one
  // per name server, however many of them are silent. Time-outs are never raised above the
  // administrator's.
  explicit ResolverTimeLimit(std::chrono::milliseconds limit);
  ~ResolverTimeLimit();
  ResolverTimeLimit(const ResolverTimeLimit&) = delete;
  ResolverTimeLimit& operator=(const ResolverTimeLimit&) = delete;

 private:
  int secondsBefore_;
  int attemptsBefore_;
  bool truncationIgnoredBefore_;
};

}  // namespace tvx
