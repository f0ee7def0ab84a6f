// One question to a web server: a small HTTP/1.0 client without TLS.
//
// Standard: HTTP/1.0, RFC 1945.
// Threads:  any; a call blocks its thread for the whole exchange. Calls share no state, and no
//           thread is made for them.
// Limits:   one deadline over everything, and kHttpAnswerLimit bytes of answer. One limit cannot be
//           kept by this side alone: a host name is looked up by the system's resolver, which
//           cannot be interrupted. Its name servers are given only the time that is left, in whole
//           seconds and at least one per server (resolver_time_limit.h); other sources that
//           /etc/nsswitch.conf names keep time-outs of their own, and so do name servers that
//           "options use-vc" has asked over TCP. Addresses in figures are not looked up.
// Not here: the meaning of the answer (login_answer.h).
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "base/input_limits.h"
#include "web/web_server_address.h"

namespace tvx {

// Is asked some twenty times a second whether the answer is still wanted.
using StopCheck = std::function<bool()>;

// Asks for the path, sent unchanged, and returns the body of the answer.
//
// Throws std::runtime_error: "Unable to connect to endpoint" when no address of the host accepted a
// connection in time, and the texts of HttpAnswer. Throws boost::system::system_error when
// resolving, writing or reading failed (the end of the stream inside the header is such an error),
// the deadline passed meanwhile (timed_out) or a stop ended it (operation_aborted): at once, but
// within some seconds while silent name servers are asked. The connection is closed on every path.
std::string HttpGet(const WebServerAddress& address, const std::string& path,
                    std::chrono::milliseconds deadline = kHttpDeadline,
                    const StopCheck& isStopped = {});

}  // namespace tvx
