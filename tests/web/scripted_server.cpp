#include "web/scripted_server.h"

#include <sys/socket.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/address_v4.hpp>
#include <boost/asio/write.hpp>
#include <utility>

namespace tvx::test {

using boost::asio::ip::tcp;
using boost::system::error_code;

bool ScriptedServer::Connection::Send(std::string_view bytes) {
  error_code error;
  boost::asio::write(socket_, boost::asio::buffer(bytes.data(), bytes.size()), error);
  return !error;
}

void ScriptedServer::Connection::AwaitClose() {
  char byte = 0;
  error_code error;
  while (!error) socket_.read_some(boost::asio::buffer(&byte, 1), error);
}

void ScriptedServer::Connection::Reset() {
  socket_.set_option(tcp::socket::linger(true, 0));
  socket_.close();
}

ScriptedServer::ScriptedServer(Script script)
    : acceptor_(context_, tcp::endpoint(boost::asio::ip::address_v4::loopback(), 0)),
      thread_([this, taken = std::move(script)] { Serve(taken); }) {}

ScriptedServer::ScriptedServer(std::string answer)
    : ScriptedServer(
          [text = std::move(answer)](Connection& connection) { connection.Send(text); }) {}

ScriptedServer::~ScriptedServer() {
  Stop();
}

std::string ScriptedServer::Port() const {
  return std::to_string(acceptor_.local_endpoint().port());
}

const std::string& ScriptedServer::Request() {
  Stop();
  return request_;
}

void ScriptedServer::Serve(const Script& script) {
  error_code error;
  tcp::socket socket(context_);
  acceptor_.accept(socket, error);
  if (error) return;
  char bytes[4096];
  request_.assign(bytes, socket.read_some(boost::asio::buffer(bytes), error));
  Connection connection(socket);
  script(connection);
}

// Closing would not wake the thread that waits for a client; shutting down does.
void ScriptedServer::Stop() {
  if (!thread_.joinable()) return;
  ::shutdown(acceptor_.native_handle(), SHUT_RDWR);
  thread_.join();
}

}  // namespace tvx::test
