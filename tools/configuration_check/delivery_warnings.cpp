#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <limits>
#include <string>

#include "configuration_check/document_place.h"
#include "configuration_check/warnings.h"
#include "web/web_server_address.h"

namespace tvx::tool {
namespace {

constexpr std::int32_t kLargestPort = 65535;
constexpr std::int32_t kSmtpPort = 25;
constexpr std::int32_t kSmtpsPort = 465;
constexpr std::int32_t kSubmissionPort = 587;

constexpr const char* kTransferFails =
    "every attempt at this server fails; a message that no other server takes waits in the queue "
    "until it is too old";

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsPort(const std::string& text) {
  if (text.empty() || text.size() > 5 || !std::all_of(text.begin(), text.end(), IsDigit)) {
    return false;
  }
  const int port = std::atoi(text.c_str());
  return port >= 1 && port <= kLargestPort;
}

// What a resolver can be asked for: names, other scripts included, and IPv4 addresses.
bool IsHostName(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x80 || std::isalnum(byte) != 0 || c == '-' || c == '.' || c == '_';
  });
}

bool IsIPv6Literal(const std::string& text) {
  return std::count(text.begin(), text.end(), ':') > 1 &&
         std::all_of(text.begin(), text.end(), [](char c) {
           return std::isxdigit(static_cast<unsigned char>(c)) != 0 || c == ':' || c == '.';
         });
}

bool IsBracketedIPv6(const std::string& text) {
  return text.size() > 2 && text.front() == '[' && text.back() == ']' &&
         IsIPv6Literal(text.substr(1, text.size() - 2));
}

bool IsLoopback(const std::string& address) {
  return address == "localhost" || address == "[::1]" || address.compare(0, 4, "127.") == 0;
}

// The warnings about one server.
class ServerWarnings {
 public:
  ServerWarnings(const TiXmlElement& element, const SmtpServer& server, Findings& findings)
      : element_(element), server_(server), findings_(findings) {}

  void Add() {
    AddAddress();
    AddPort();
    AddTls();
    AddLogin();
  }

  void AddRepetition() {
    Warn("description", "repeated-server", "says the same as a server before it",
         "all its values are the same", "each message is tried at it twice", "remove one of them");
  }

 private:
  void Warn(const char* attribute, const char* code, const std::string& what,
            const std::string& why, const std::string& instead, const std::string& mend) {
    findings_.push_back({Severity::Warning, PlaceOf(element_, attribute), code,
                         NameOf(element_) + " " + what, why, instead, mend});
  }

  void AddAddress() {
    const std::string& address = server_.address;
    if (IsHostName(address) || IsBracketedIPv6(address)) return;
    std::string why = Quoted(address) + " holds characters that no host name has";
    std::string mend = "write the name or address of the mail server, and nothing else";
    if (address.empty()) {
      why = "its address is empty";
    } else if (IsIPv6Literal(address)) {
      why = Quoted(address) + " is an IPv6 address without brackets";
      mend = "write " + Quoted("[" + address + "]");
    } else if (address.find("://") != std::string::npos) {
      why = Quoted(address) + " is a URL";
    } else if (address.find(':') != std::string::npos) {
      why = Quoted(address) + " holds a port";
      mend = "write the port as the attribute \"port\"";
    }
    Warn("address", "server-address", "cannot be reached", why, kTransferFails, mend);
  }

  void AddPort() {
    if (server_.port >= 1 && server_.port <= kLargestPort) return;
    Warn("port", "port", "cannot be reached",
         "its port " + std::to_string(server_.port) + " is not within 1 to 65535", kTransferFails,
         "write the port of the mail server: 25, 465 or 587 most often");
  }

  void AddTls() {
    const std::int32_t tls = server_.UseSSL;
    const std::string port = std::to_string(server_.port);
    if (tls < use_ssl::kPlain || tls > use_ssl::kStartTls) {
      Warn("UseSSL", "use-ssl", "is spoken to without encryption",
           "its UseSSL " + std::to_string(tls) + " is none of 0, 1 and 2", "it counts as 0",
           "write 0 for none, 1 for TLS from the first byte, 2 for STARTTLS");
    }
    if (server_.port == kSmtpsPort && tls != use_ssl::kSmtps) {
      Warn("UseSSL", "tls-mismatch", "is spoken to without TLS from the first byte",
           "its UseSSL is " + std::to_string(tls) + ", while servers at port " + port +
               " wait for TLS",
           kTransferFails, "write UseSSL=\"1\"");
    }
    if ((server_.port == kSmtpPort || server_.port == kSubmissionPort) && tls == use_ssl::kSmtps) {
      Warn("UseSSL", "tls-mismatch", "is spoken to with TLS from the first byte",
           "its UseSSL is 1, while servers at port " + port + " begin without", kTransferFails,
           "write UseSSL=\"2\" for STARTTLS, or port=\"465\"");
    }
  }

  void AddLogin() {
    const TiXmlElement* login = element_.FirstChildElement("Authentication");
    if (login == nullptr) return;
    const auto warn = [&](const char* attribute, const char* code, const char* what,
                          const char* why, const char* instead, const char* mend) {
      findings_.push_back({Severity::Warning, PlaceOf(*login, attribute), code,
                           NameOf(element_) + " " + what, why, instead, mend});
    };
    const std::string& name = server_.username;
    const bool isEncrypted =
        server_.UseSSL == use_ssl::kSmtps || server_.UseSSL == use_ssl::kStartTls;
    if (name.empty() && !server_.password.empty()) {
      warn("username", "login", "is used without login", "its user name is empty",
           "the password is never sent", "write the user name, or remove \"Authentication\"");
    } else if (!name.empty() && server_.password.empty()) {
      warn("password", "login", "is logged in to without password", "its password is empty",
           "the server decides about it", "write the password, or remove \"Authentication\"");
    }
    if (name.find(':') != std::string::npos) {
      warn("username", "login", "gets another login than this", "its user name holds a \":\"",
           "the user name ends there, and the password begins", "use a user name without \":\"");
    }
    if (!name.empty() && !isEncrypted && !IsLoopback(server_.address)) {
      warn("password", "plain-login", "gets the password unencrypted", "its UseSSL is not 1 or 2",
           "everybody on the way can read it", "write UseSSL=\"2\", if the server knows STARTTLS");
    }
  }

  const TiXmlElement& element_;
  const SmtpServer& server_;
  Findings& findings_;
};

// The warnings about the attributes of the block and about the web server.
class SettingWarnings {
 public:
  SettingWarnings(const TiXmlElement& block, const NotifyConfig& kept, Findings& findings)
      : block_(block), kept_(kept), findings_(findings) {}

  void Add() {
    if (kept_.MaxRetrySeconds <= 0) {
      Warn("MaxRetrySeconds", kept_.MaxRetrySeconds, "a message is that old at once",
           "a message that could not be sent is tried once more, and then discarded",
           "write seconds, as 172800 for two days");
    }
    if (kept_.MaxRetryQueue <= 0) {
      Warn("MaxRetryQueue", kept_.MaxRetryQueue, "no message may wait",
           "one message waits all the same, and goes when another one comes",
           "write how many messages may wait, as 100");
    }
    if (kept_.EmailSizeLimitMB == 0) {
      Warn("EmailSizeLimitMB", 0, "no video has room", "no video and no picture is attached",
           "write MiB, as 10");
    } else if (MegabytesToBytes(kept_.EmailSizeLimitMB) ==
               std::numeric_limits<std::uint32_t>::max()) {
      Warn("EmailSizeLimitMB", kept_.EmailSizeLimitMB, "it is negative or above 4095",
           "it counts as 4 GiB, which is no limit", "write MiB, as 10");
    }
    if (kept_.servers.empty()) {
      AddMissing("Servers", "no-servers", "there is no mail server", "every message is dropped",
                 "add an \"smtp\" with \"description\" and \"address\" to \"Servers\"");
    }
    if (!kept_.webAddress.empty()) AddWebAddress();
  }

  void AddMissing(const char* list, const char* code, const char* what, const char* instead,
                  const char* mend) {
    findings_.push_back({Severity::Warning, PlaceOf(*block_.FirstChildElement(list)), code, what,
                         std::string("no element \"smtp\" in ") + Quoted(list) + " is kept",
                         instead, mend});
  }

 private:
  void Warn(const char* attribute, std::int32_t value, const char* why, const char* instead,
            const char* mend) {
    findings_.push_back({Severity::Warning, PlaceOf(block_, attribute), "limit",
                         std::string(attribute) + " is " + std::to_string(value), why, instead,
                         mend});
  }

  void AddWebAddress() {
    const std::string& text = kept_.webAddress;
    const WebServerAddress address = ParseWebServerAddress(text);
    const Place place = PlaceOf(*block_.FirstChildElement("Web"), "address");
    if (!(IsHostName(address.host) || IsIPv6Literal(address.host)) || !IsPort(address.port)) {
      findings_.push_back({Severity::Warning, place, "web-address",
                           "the web server cannot be reached",
                           Quoted(text) + " is more or less than a host and a port",
                           "\"[Web Server Unreachable]\" stands in the place of every link",
                           "write it as \"http://host\" or \"http://host:81\""});
    } else if (::strncasecmp(text.c_str(), "https://", 8) == 0) {
      findings_.push_back({Severity::Warning, place, "web-address",
                           "the web server is asked without encryption",
                           Quoted(text) + " asks for https, which the plug-in does not speak",
                           "it is asked by http at port " + address.port,
                           "write an address where the web server speaks http"});
    }
  }

  const TiXmlElement& block_;
  const NotifyConfig& kept_;
  Findings& findings_;
};

}  // namespace

void AddDeliveryWarnings(const TiXmlElement& block, const Reading& reading,
                         const NotifyConfig& kept, Findings& findings) {
  SettingWarnings(block, kept, findings).Add();
  const std::vector<SmtpServer>& servers = kept.servers;
  for (std::size_t i = 0; i < servers.size(); ++i) {
    const auto server = servers.begin() + static_cast<std::ptrdiff_t>(i);
    ServerWarnings warnings(*reading.Servers()[i], *server, findings);
    warnings.Add();
    if (std::find(servers.begin(), server, *server) != server) warnings.AddRepetition();
  }
}

}  // namespace tvx::tool
