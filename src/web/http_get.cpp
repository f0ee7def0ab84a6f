#include "web/http_get.h"

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <boost/system/system_error.hpp>
#include <stdexcept>
#include <string_view>

#include "web/http_answer.h"
#include "web/resolver_time_limit.h"

namespace tvx {
namespace {

using boost::asio::ip::tcp;
using boost::system::error_code;
using boost::system::system_error;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kReadSize = 8192;
// How soon a stop is seen.
constexpr std::chrono::milliseconds kStopSlice{50};
constexpr std::chrono::seconds kLookUpSlice{2};
// What no name server answers takes the resolver at least so long; what it cannot ask, no time.
constexpr std::chrono::milliseconds kSilence{900};

class Exchange {
 public:
  Exchange(std::chrono::milliseconds deadline, const StopCheck& isStopped)
      : deadline_(Clock::now() + deadline), isStopped_(isStopped), socket_(context_) {}

  void Connect(const WebServerAddress& address) {
    const tcp::resolver::results_type endpoints = Resolve(address);
    auto left = static_cast<Clock::rep>(endpoints.size());
    for (const auto& entry : endpoints) {
      // An address that swallows packets (a dead IPv6 route, say) leaves the others their share.
      const Clock::time_point now = Clock::now();
      const Clock::time_point limit = now + (deadline_ - now) / left--;
      const error_code error =
          RunUntil(limit, [&](auto handler) { socket_.async_connect(entry.endpoint(), handler); });
      if (!error) return;
      error_code ignored;
      socket_.close(ignored);
    }
    throw std::runtime_error("Unable to connect to endpoint");
  }

  void Write(std::string_view request) {
    ThrowIf(Run([&](auto handler) {
              boost::asio::async_write(socket_, boost::asio::buffer(request.data(), request.size()),
                                       handler);
            }),
            "write");
  }

  // The bytes are valid until the next call; none are the end of the stream.
  std::string_view Read() {
    const error_code error =
        Run([&](auto handler) { socket_.async_read_some(boost::asio::buffer(buffer_), handler); });
    if (error == boost::asio::error::eof) return {};
    ThrowIf(error, "read");
    return {buffer_, transferred_};
  }

 private:
  static void ThrowIf(const error_code& error, const char* what) {
    if (error) throw system_error(error, what);
  }

  tcp::resolver::results_type Resolve(const WebServerAddress& address) {
    // The resolver takes an empty name for this machine.
    if (address.host.empty()) throw system_error(boost::asio::error::host_not_found, "resolve");
    tcp::resolver resolver(context_);
    error_code error;
    auto endpoints =
        resolver.resolve(address.host, address.port, tcp::resolver::numeric_host, error);
    if (error == boost::asio::error::host_not_found) {
      // A look-up cannot be ended, so it is made in short ones as long as name servers are silent.
      for (bool isSilent = true; isSilent && Clock::now() < deadline_;) {
        if (isStopped_ && isStopped_()) throw system_error(boost::asio::error::operation_aborted);
        const Clock::time_point begin = Clock::now();
        const ResolverTimeLimit limit(std::chrono::duration_cast<std::chrono::milliseconds>(
            std::min<Clock::duration>(kLookUpSlice, deadline_ - begin)));
        endpoints = resolver.resolve(address.host, address.port, error);
        isSilent = error == boost::asio::error::host_not_found_try_again &&
                   Clock::now() - begin >= kSilence;
      }
    }
    if (!error && Clock::now() >= deadline_) error = boost::asio::error::timed_out;
    ThrowIf(error, "resolve");
    return endpoints;
  }

  template <typename Start>
  error_code Run(Start start) {
    return RunUntil(deadline_, start);
  }

  // Starts one operation and runs it to its end, or ends it at the limit by closing the socket.
  template <typename Start>
  error_code RunUntil(Clock::time_point limit, Start start) {
    error_code result;
    start([&](const error_code& error, std::size_t count = 0) {
      result = error;
      transferred_ = count;
    });
    context_.restart();
    bool isStopped = false;
    do {
      context_.run_until(std::min(limit, Clock::now() + kStopSlice));
      if (context_.stopped()) return result;
      isStopped = isStopped_ && isStopped_();
    } while (!isStopped && Clock::now() < limit);
    error_code ignored;
    socket_.close(ignored);
    context_.run();
    if (isStopped) throw system_error(boost::asio::error::operation_aborted, "stop");
    return boost::asio::error::timed_out;
  }

  const Clock::time_point deadline_;
  const StopCheck& isStopped_;
  boost::asio::io_context context_{1};
  tcp::socket socket_;
  std::size_t transferred_ = 0;
  char buffer_[kReadSize];
};

}  // namespace

std::string HttpGet(const WebServerAddress& address, const std::string& path,
                    std::chrono::milliseconds deadline, const StopCheck& isStopped) {
  Exchange exchange(deadline, isStopped);
  exchange.Connect(address);
  exchange.Write("GET " + path + " HTTP/1.0\r\n" +       //
                 "Host: " + address.hostPort + "\r\n" +  //
                 "Accept: */*\r\n" +                     //
                 "Connection: close\r\n" +               //
                 "\r\n");
  HttpAnswer answer;
  while (!answer.IsComplete()) {
    const std::string_view bytes = exchange.Read();
    if (bytes.empty()) break;
    answer.Append(bytes);
  }
  if (!answer.HasBody()) throw system_error(boost::asio::error::eof, "read");
  return answer.TakeBody();
}

}  // namespace tvx
