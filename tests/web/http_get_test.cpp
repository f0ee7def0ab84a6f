// Real sockets on the loopback: what a web server may do to us, and how long we let it.
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <resolv.h>
#include <sys/socket.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/write.hpp>
#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/fake_host.h"
#include "support/table.h"
#include "web/http_get.h"
#include "web/web_link.h"

namespace tvx {
namespace {

using boost::asio::ip::tcp;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// For servers that stall, for all others, and for a machine that is busy with other things.
constexpr milliseconds kShort{200}, kAmple{5000}, kSlack{1500};

// Takes one connection, which gets the answer when the client's first bytes have arrived. Then it is
// closed, or what the second text says.
class Server {
 public:
  explicit Server(std::string answer, std::string then = "")
      : answer_(std::move(answer)),
        then_(std::move(then)),
        acceptor_(context_, tcp::endpoint(boost::asio::ip::address_v4::loopback(), 0)),
        address_("127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port())),
        thread_([this] { Serve(); }) {}
  ~Server() { Request(); }

  const std::string& Address() const { return address_; }
  // What the client sent with its first write. Ends the server's thread, which shutting down wakes
  // while it waits for a client.
  const std::string& Request() {
    ::shutdown(acceptor_.native_handle(), SHUT_RDWR);
    if (thread_.joinable()) thread_.join();
    return request_;
  }

 private:
  void Serve() {
    boost::system::error_code error;
    tcp::socket socket(context_);
    acceptor_.accept(socket, error);
    if (error) return;
    char bytes[65536] = {};
    request_.assign(bytes, socket.read_some(boost::asio::buffer(bytes), error));
    boost::asio::write(socket, boost::asio::buffer(answer_), error);
    const std::size_t piece = then_ == "flood" ? sizeof(bytes) : then_ == "drip" ? 1 : 0;
    while (piece > 0 && !error) {
      boost::asio::write(socket, boost::asio::buffer(bytes, piece), error);
      if (piece == 1) std::this_thread::sleep_for(milliseconds(20));
    }
    while (then_ == "silence" && !error) socket.read_some(boost::asio::buffer(bytes), error);
    if (then_ == "reset") socket.set_option(tcp::socket::linger(true, 0));
    socket.close();
  }

  const std::string answer_, then_;
  boost::asio::io_context context_;
  tcp::acceptor acceptor_;
  const std::string address_;
  std::string request_;
  std::thread thread_;
};

// Asks for a link and expects that it cannot be had, with this line in the log and in time.
void ExpectUnreachable(const std::string& address, const std::string& reason,
                       milliseconds deadline) {
  test::FakeHost host;
  const steady_clock::time_point before = steady_clock::now();
  const auto get = [&](const WebServerAddress& asked, const std::string& path) {
    return HttpGet(asked, path, deadline);
  };
  EXPECT_EQ(BuildWebLink({true, 0, 10}, "http://" + address, "A1", {{0x10201}},
                         {kModuleId, &test::FakeHost::Entry}, get),
            "[Web Server Unreachable]");
  EXPECT_LT(steady_clock::now() - before, deadline + kSlack);
  const std::string line = "Unable to communicate with webserver at address " + address + ". ";
  EXPECT_EQ(host.Log(), (std::vector<test::LogLine>{{75, line + reason}}));
}

TEST(HttpGet, SendsFiveLinesInOneWriteAndReturnsTheBody) {
  Server server("HTTP/1.0 200 OK\r\n\r\nfirst\r\n\r\nsecond");
  // An address without a host is not this machine; a name may have several, tried in turn.
  const std::string port = server.Address().substr(9);
  ExpectUnreachable(port, "1: Host not found (authoritative)", kAmple);
  const bool hasName = ::gethostbyname("localhost") != nullptr;
  const std::string address = (hasName ? "localhost" : "127.0.0.1") + port;
  EXPECT_EQ(HttpGet(ParseWebServerAddress("https://" + address), "/a%20b?c=d e"),
            "first\r\n\r\nsecond");
  EXPECT_EQ(server.Request(), "GET /a%20b?c=d e HTTP/1.0\r\nHost: " + address +
                                  "\r\nAccept: */*\r\nConnection: close\r\n\r\n");
}

// A server that keeps the connection open costs nothing, and a stop ends the wait for any.
TEST(HttpGet, WaitsNoLongerThanItMust) {
  Server keeping("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbody", "silence");
  EXPECT_EQ(HttpGet(ParseWebServerAddress(keeping.Address()), "/", std::chrono::hours(1)), "body");
  Server silent("", "silence");
  int asked = 0;
  try {
    HttpGet(ParseWebServerAddress(silent.Address()), "/", std::chrono::hours(1),
            [&asked] { return ++asked == 3; });
    ADD_FAILURE() << "an answer of a server that says nothing";
  } catch (const boost::system::system_error& error) {
    EXPECT_EQ(error.code(), boost::asio::error::operation_aborted);
  }
}

// Only those that go on without an end need the short deadline, at which they are given up.
TEST(HttpGet, EveryFaultOfAServerEndsInTimeAndInTheLog) {
  for (const auto& row : test::Rows(test::Table(TABLES))) {
    SCOPED_TRACE(row[0] + row[1]);
    Server server(row[0], row[1]);
    ExpectUnreachable(server.Address(), row[2], row[2].substr(0, 3) == "110" ? kShort : kAmple);
  }
}

// A full queue of waiting connections drops the next one's packets, as a firewall does; a closed port
// refuses it at once.
TEST(HttpGet, AConnectionThatIsNeverMadeEndsInTime) {
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
  const std::string address = "127.0.0.1:" + std::to_string(acceptor.local_endpoint().port());
  ExpectUnreachable(address, "Error message: Unable to connect to endpoint", kShort);
  EXPECT_GE(steady_clock::now() - before, kShort);
  acceptor.close();
  ExpectUnreachable(address, "Error message: Unable to connect to endpoint", kAmple);
}

// The resolver counts in seconds, so this one takes a second. Left alone it would take ten.
TEST(HttpGet, ASilentNameServerIsNotWaitedForAndTheResolverIsLeftAsItWas) {
  boost::asio::io_context context;
  boost::asio::ip::udp::socket silent(context, {boost::asio::ip::address_v4::loopback(), 0});
  ASSERT_EQ(res_init(), 0);
  _res.nscount = 1;
  _res.nsaddr_list[0] = {};
  _res.nsaddr_list[0].sin_family = AF_INET;
  _res.nsaddr_list[0].sin_port = htons(silent.local_endpoint().port());
  _res.nsaddr_list[0].sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const auto before = std::tuple(_res.retrans, _res.retry, _res.options);
  ExpectUnreachable("webserver.test.:80", "2: Host not found (non-authoritative), try again later",
                    milliseconds(1000));
  EXPECT_GT(silent.available(), 0u);  // it was asked
  int looks = 0;
  EXPECT_THROW(HttpGet({"webserver.test.", "80", ""}, "/", kAmple, [&] { return ++looks == 2; }),
               boost::system::system_error);
  EXPECT_EQ(looks, 2);  // a stop is seen before the deadline
  EXPECT_EQ(std::tuple(_res.retrans, _res.retry, _res.options), before);
  res_init();
}

}  // namespace
}  // namespace tvx
