#include "web/resolver_time_limit.h"

#include <arpa/nameser.h>
#include <netinet/in.h>
#include <resolv.h>

#include <algorithm>

namespace tvx {
namespace {

// The resolver re-reads a changed resolv.conf only while its record is unchanged, which it never
// would be during our look-ups. Making up a query, which nobody sends, has it look at the file, and
// sets the record up on a thread that has not looked anything up yet.
void RefreshResolver() {
  unsigned char query[NS_PACKETSZ];
  res_mkquery(ns_o_query, ".", ns_c_in, ns_t_a, nullptr, 0, nullptr, query, sizeof(query));
}

}  // namespace

ResolverTimeLimit::ResolverTimeLimit(std::chrono::milliseconds limit) {
  RefreshResolver();
  auto& resolver = _res;
  secondsBefore_ = resolver.retrans;
  attemptsBefore_ = resolver.retry;
  truncationIgnoredBefore_ = (resolver.options & RES_IGNTC) != 0;

  // One attempt at n silent servers takes n times the time-out, and a look-up that comes to nothing
  // asks for two names at most: with the search domain and without.
  const int servers = std::clamp(resolver.nscount, 1, MAXNS);
  const auto seconds =
      static_cast<int>(std::chrono::duration_cast<std::chrono::seconds>(limit).count());
  const int attempts = seconds >= 4 * servers ? 2 : 1;
  resolver.retry = std::min(resolver.retry, attempts);
  resolver.retrans = std::min(resolver.retrans, std::max(1, seconds / (2 * servers * attempts)));
  // A truncated answer would be asked for again over TCP, which obeys no time-out. What came with
  // it will do: the address of a web server fits in one packet.
  resolver.options |= RES_IGNTC;
}

ResolverTimeLimit::~ResolverTimeLimit() {
  auto& resolver = _res;
  resolver.retrans = secondsBefore_;
  resolver.retry = attemptsBefore_;
  if (!truncationIgnoredBefore_) resolver.options &= ~static_cast<unsigned long>(RES_IGNTC);
}

}  // namespace tvx
