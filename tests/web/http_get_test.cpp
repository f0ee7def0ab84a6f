// Real sockets on the loopback: what a web server may do to us, and how long we let it.
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <resolv.h>
#include <sys/socket.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/udp.hpp>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support/fake_host.h"
#include "web/http_get.h"
#include "web/scripted_server.h"
#include "web/web_link.h"

namespace tvx {
namespace {

using boost::asio::ip::tcp;
using boost::asio::ip::udp;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using test::ScriptedServer;

// For servers that stall, which is known only when the time is over, and for all others.
constexpr milliseconds kShort{200};
constexpr milliseconds kAmple{5000};
// For a machine that is busy with other things.
constexpr milliseconds kSlack{1500};
const char kHeader[] = "HTTP/1.0 200 OK\r\nContent-Length: 100\r\n\r\n";

// Asks for a link and expects that it cannot be had, with this line in the log and in time.
void ExpectUnreachable(const std::string& address, const std::string& reason,
                       milliseconds deadline) {
  test::FakeHost host;
  const steady_clock::time_point before = steady_clock::now();
  EXPECT_EQ(BuildWebLink({true, 0, 10}, "http://" + address, "A1", {{0x10201}},
                         {kModuleId, &test::FakeHost::Entry},
                         [&](const WebServerAddress& asked, const std::string& path) {
                           return HttpGet(asked, path, deadline);
                         }),
            "[Web Server Unreachable]");
  EXPECT_LT(steady_clock::now() - before, deadline + kSlack);
  EXPECT_EQ(host.Log(),
            (std::vector<test::LogLine>{{75, "Unable to communicate with webserver at address " +
                                                 address + ". " + reason}}));
}

TEST(HttpGet, SendsFiveLinesInOneWriteAndReturnsTheBody) {
  ScriptedServer server("HTTP/1.0 200 OK\r\n\r\nfirst\r\n\r\nsecond");
  EXPECT_EQ(HttpGet(ParseWebServerAddress("https://" + server.Address()), "/a%20b?c=d e"),
            "first\r\n\r\nsecond");
  EXPECT_EQ(server.Request(), "GET /a%20b?c=d e HTTP/1.0\r\nHost: " + server.Address() +
                                  "\r\nAccept: */*\r\nConnection: close\r\n\r\n");
}

TEST(HttpGet, LooksUpNamesAndTriesEachAddressInTurn) {
  if (::gethostbyname("localhost") == nullptr) GTEST_SKIP() << "\"localhost\" has no address here";
  ScriptedServer server("HTTP/1.0 200 OK\r\n\r\nbody");
  EXPECT_EQ(HttpGet(ParseWebServerAddress("localhost:" + server.Port()), "/"), "body");
}

TEST(HttpGet, EveryFaultOfAServerEndsInTimeAndInTheLog) {
  const struct {
    const char* name;
    ScriptedServer::Script script;
    std::string reason;
    milliseconds deadline;
  } rows[] = {
      {"another page", [](auto& c) { c.Send("HTTP/1.1 302 Found\r\nLocation: /\r\n\r\n"); },
       "Error message: Invalid response status code: 302. Expecting 200", kAmple},
      {"another protocol", [](auto& c) { c.Send("220 mail server\r\n"); },
       "Error message: Invalid Get response", kAmple},
      {"a bad length", [](auto& c) { c.Send("HTTP/1.0 200 OK\r\nContent-Length: 12x\r\n\r\n"); },
       "Error message: Invalid Content-Length Value: 12x", kAmple},
      {"a bad status, then silence",
       [](auto& c) {
         c.Send("HTTP/1.0 500 Oops\r\n");
         c.AwaitClose();
       },
       "Error message: Invalid response status code: 500. Expecting 200", kAmple},
      {"no answer", [](auto&) {}, "2: End of file", kAmple},
      {"a cut status line", [](auto& c) { c.Send("HTTP/1.0 20"); }, "2: End of file", kAmple},
      {"a cut header", [](auto& c) { c.Send("HTTP/1.0 200 OK\r\nServer: x\r\n"); },
       "2: End of file", kAmple},
      {"a reset in the body",
       [](auto& c) {
         c.Send(kHeader);
         c.Reset();
       },
       "104: Connection reset by peer", kAmple},
      {"silence", [](auto& c) { c.AwaitClose(); }, "110: Connection timed out", kShort},
      {"silence in the body",
       [](auto& c) {
         c.Send(std::string(kHeader) + "some of it");
         c.AwaitClose();
       },
       "110: Connection timed out", kShort},
      {"one byte after the other",
       [](auto& c) {
         const std::string answer = kHeader + std::string(1000, 'x');
         for (const char byte : answer) {
           if (!c.Send({&byte, 1})) break;
           std::this_thread::sleep_for(milliseconds(20));
         }
       },
       "110: Connection timed out", kShort},
      {"no end",
       [](auto& c) {
         const std::string block(64 * 1024, 'x');
         c.Send(kHeader);
         while (c.Send(block)) continue;
       },
       "Error message: The response is longer than 1048576 bytes", kAmple},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ScriptedServer server(row.script);
    ExpectUnreachable(server.Address(), row.reason, row.deadline);
  }
}

TEST(HttpGet, ARefusedConnectionEndsAtOnce) {
  boost::asio::io_context context;
  tcp::acceptor acceptor(context, {boost::asio::ip::address_v4::loopback(), 0});
  const std::string port = std::to_string(acceptor.local_endpoint().port());
  acceptor.close();
  ExpectUnreachable("127.0.0.1:" + port, "Error message: Unable to connect to endpoint", kAmple);
}

// A full queue of waiting connections drops the next one's packets, as a firewall does.
TEST(HttpGet, AConnectionThatIsNeverAnsweredEndsAtTheDeadline) {
  boost::asio::io_context context;
  tcp::acceptor acceptor(context, tcp::v4());
  acceptor.bind({boost::asio::ip::address_v4::loopback(), 0});
  acceptor.listen(0);
  std::vector<tcp::socket> waiting;
  for (int i = 0; i < 4; ++i) {
    waiting.emplace_back(context, tcp::v4());
    waiting.back().async_connect(acceptor.local_endpoint(), [](const auto&) {});
  }
  const steady_clock::time_point before = steady_clock::now();
  ExpectUnreachable("127.0.0.1:" + std::to_string(acceptor.local_endpoint().port()),
                    "Error message: Unable to connect to endpoint", kShort);
  EXPECT_GE(steady_clock::now() - before, kShort);
}

TEST(HttpGet, AnAddressWithoutAHostIsNotThisMachine) {
  ScriptedServer server("HTTP/1.0 200 OK\r\n\r\n");
  ExpectUnreachable(":" + server.Port(), "1: Host not found (authoritative)", kAmple);
}

// The resolver counts in seconds, so this one takes a second. Left alone it would take ten.
TEST(HttpGet, ASilentNameServerIsNotWaitedForAndTheResolverIsLeftAsItWas) {
  boost::asio::io_context context;
  udp::socket silent(context, {boost::asio::ip::address_v4::loopback(), 0});
  ASSERT_EQ(res_init(), 0);
  _res.nscount = 1;
  _res.nsaddr_list[0] = {};
  _res.nsaddr_list[0].sin_family = AF_INET;
  _res.nsaddr_list[0].sin_port = htons(silent.local_endpoint().port());
  _res.nsaddr_list[0].sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int seconds = _res.retrans;
  const int attempts = _res.retry;
  const auto options = _res.options;

  ExpectUnreachable("webserver.test.:80", "2: Host not found (non-authoritative), try again later",
                    milliseconds(1000));

  EXPECT_GT(silent.available(), 0u);  // it was asked
  EXPECT_EQ(_res.retrans, seconds);
  EXPECT_EQ(_res.retry, attempts);
  EXPECT_EQ(_res.options, options);
  res_init();
}

}  // namespace
}  // namespace tvx
