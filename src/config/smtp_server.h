// One outgoing mail server of the configuration.
// Threads: a plain value, its owner's.
#pragma once

#include <cstdint>
#include <string>

namespace tvx {

// How a server is spoken to. Any other number is kept as read and treated as plain.
namespace use_ssl {
constexpr std::int32_t kPlain = 0;
constexpr std::int32_t kSmtps = 1;     // TLS from the first byte
constexpr std::int32_t kStartTls = 2;  // STARTTLS required
}  // namespace use_ssl

struct SmtpServer {
  std::string description;
  std::string address;  // host name or address
  std::int32_t port = 25;
  std::int32_t UseSSL = use_ssl::kPlain;
  std::string username;
  std::string password;

  friend bool operator==(const SmtpServer& a, const SmtpServer& b) {
    return a.description == b.description && a.address == b.address && a.port == b.port &&
           a.UseSSL == b.UseSSL && a.username == b.username && a.password == b.password;
  }
};

}  // namespace tvx
