// A web server of a few lines: one connection, answered as a test says.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

#include "web/web_server_address.h"

namespace tvx::test {

class ScriptedServer {
 public:
  class Connection {
   public:
    explicit Connection(boost::asio::ip::tcp::socket& socket) : socket_(socket) {}
    // False once the client is gone.
    bool Send(std::string_view bytes);
    // Waits until the client closes the connection.
    void AwaitClose();
    // Closes so that the client sees a reset.
    void Reset();

   private:
    boost::asio::ip::tcp::socket& socket_;
  };
  using Script = std::function<void(Connection& connection)>;

  // Listens on the loopback at once. The script runs on a thread of the server's own after the
  // client's first bytes have arrived; the connection is closed at its end.
  explicit ScriptedServer(Script script);
  // Answers with the text.
  explicit ScriptedServer(std::string answer);
  // Ends the wait for a client that never came, and joins the thread.
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  std::string Port() const;
  std::string Address() const { return "127.0.0.1:" + Port(); }
  // What the client sent with its first write. Ends the server's thread.
  const std::string& Request();

 private:
  void Serve(const Script& script);
  void Stop();

  boost::asio::io_context context_;
  boost::asio::ip::tcp::acceptor acceptor_;
  std::string request_;
  std::thread thread_;
};

}  // namespace tvx::test
