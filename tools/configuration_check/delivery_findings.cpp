#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <limits>
#include <set>
#include <string>
#include <tuple>

#include "configuration_check/document_place.h"
#include "configuration_check/findings.h"
#include "configuration_check/kept_json.h"
#include "mail/address.h"
#include "web/web_server_address.h"

namespace tvx::tool {
namespace {

constexpr std::int32_t kLargestPort = 65535;
constexpr std::int32_t kFirstRetry = 60;  // seconds
// MiB whose base64 is just within the 25 MB that large providers take.
constexpr std::int32_t kUsualLimit = 18;
constexpr const char* kWriteStandard = "add <Delivery Standard=\"1\"/> to \"Notify\"";
constexpr const char* kTransferFails =
    "every attempt at this server fails; a message that no other server takes waits in the queue "
    "until it is too old";

bool IsPort(const std::string& text) {
  const bool isNumber =
      text.size() <= 5 &&
      std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
  const int port = isNumber ? std::atoi(text.c_str()) : 0;
  return port >= 1 && port <= kLargestPort;
}

// What a resolver can be asked for: names, other scripts included, and IPv4 addresses.
bool IsHostName(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return c >= 0x80 || std::isalnum(c) != 0 || c == '-' || c == '.' || c == '_';
  });
}

bool IsIPv6Literal(const std::string& text) {
  return std::count(text.begin(), text.end(), ':') > 1 &&
         std::all_of(text.begin(), text.end(),
                     [](unsigned char c) { return std::isxdigit(c) != 0 || c == ':' || c == '.'; });
}

bool IsBracketedIPv6(const std::string& text) {
  return text.size() > 2 && text.front() == '[' && text.back() == ']' &&
         IsIPv6Literal(text.substr(1, text.size() - 2));
}

bool IsLoopback(const std::string& address) {
  return address == "localhost" || address == "[::1]" || address.compare(0, 4, "127.") == 0;
}

struct Settings {
  const std::string& file;
  const TiXmlElement& block;
  const NotifyConfig& kept;
  const WebServerAddress web = ParseWebServerAddress(kept.webAddress);

  Place At(const char* in) const { return in == nullptr ? Place() : PlaceOf(block, in); }
  Facts Words() const {
    return {{"MaxRetrySeconds", kept.MaxRetrySeconds},
            {"MaxRetryQueue", kept.MaxRetryQueue},
            {"EmailSizeLimitMB", kept.EmailSizeLimitMB},
            {"webAddress", kept.webAddress},
            {"HelloName", kept.delivery.HelloName},
            {"webPort", web.port},
            {"file", file}};
  }
  bool HasWeb() const { return !kept.webAddress.empty(); }
  bool IsWebReachable() const {
    return (IsHostName(web.host) || IsIPv6Literal(web.host)) && IsPort(web.port);
  }
  bool IsLimitTooLarge() const {
    return MegabytesToBytes(kept.EmailSizeLimitMB) == std::numeric_limits<std::uint32_t>::max();
  }
  bool IsOldLayout() const { return !kept.delivery.Standard && !kept.servers.empty(); }
  bool SendsVideo() const {
    return std::any_of(kept.profiles.begin(), kept.profiles.end(),
                       [](const auto& it) { return it.second.attach; });
  }
  // Whether everybody may read or write the file.
  bool IsOpenToAll() const {
    struct stat status {};
    return ::stat(file.c_str(), &status) == 0 && (status.st_mode & (S_IROTH | S_IWOTH)) != 0;
  }
};

constexpr Rule<Settings> kSettingRules[] = {
    {kWarning, "MaxRetrySeconds", "limit", "MaxRetrySeconds is $MaxRetrySeconds",
     "a message is that old at once",
     "a message that could not be sent is tried once more, and then discarded",
     "write seconds, as 172800 for two days",
     [](const Settings& it) { return it.kept.MaxRetrySeconds <= 0; }},
    {kWarning, "MaxRetrySeconds", "limit", "MaxRetrySeconds is $MaxRetrySeconds",
     "the first retry comes after a minute",
     "a message that could not be sent is tried once more, and then discarded",
     "write seconds, as 172800 for two days",
     [](const Settings& it) {
       return it.kept.MaxRetrySeconds > 0 && it.kept.MaxRetrySeconds < kFirstRetry;
     }},
    {kWarning, "MaxRetryQueue", "limit", "MaxRetryQueue is $MaxRetryQueue", "no message may wait",
     "one message waits all the same, and goes when another one comes",
     "write how many messages may wait, as 100",
     [](const Settings& it) { return it.kept.MaxRetryQueue <= 0; }},
    {kWarning, "EmailSizeLimitMB", "limit", "EmailSizeLimitMB is 0", "no video has room",
     "no video and no picture is attached", "write MiB, as 10",
     [](const Settings& it) { return it.kept.EmailSizeLimitMB == 0; }},
    {kWarning, "EmailSizeLimitMB", "limit", "EmailSizeLimitMB is $EmailSizeLimitMB",
     "it is negative or above 4095", "it counts as 4 GiB, which is no limit", "write MiB, as 10",
     [](const Settings& it) { return it.IsLimitTooLarge(); }},
    {kWarning, "EmailSizeLimitMB", "limit", "EmailSizeLimitMB is $EmailSizeLimitMB",
     "in base64 that is more than the 25 MB that large providers take, and others take less",
     "a mail with long clips fails, where several smaller ones would arrive", "write MiB, as 10",
     [](const Settings& it) {
       return it.kept.EmailSizeLimitMB > kUsualLimit && !it.IsLimitTooLarge();
     }},
    {kWarning, "Servers/", "delivery",
     "mails with video are not written as today's servers want them",
     "their lines end in a bare LF, as \"Delivery\" does not ask for \"Standard\"",
     "strict servers refuse them, and they are tried in vain until they are too old",
     kWriteStandard, [](const Settings& it) { return it.IsOldLayout() && it.SendsVideo(); }},
    {kWarning, "Delivery/HelloName", "hello-name", "the HelloName is not used",
     "\"$HelloName\" is neither a host name nor an address in brackets",
     "mail servers are greeted with the name of this machine", "write a name as nvr.example.com",
     [](const Settings& it) {
       const std::string& name = it.kept.delivery.HelloName;
       return !name.empty() && HelloName(name, {}) != name;
     }},
    {kWarning, "Delivery/CertificateFile", "certificate-file", "the CertificateFile is not used",
     "VerifyCertificates is not 1", "every certificate is taken", "write VerifyCertificates=\"1\"",
     [](const Settings& it) {
       return !it.kept.delivery.CertificateFile.empty() && !it.kept.delivery.VerifyCertificates;
     }},
    {kError, "Servers/", "no-servers", "there is no mail server",
     "no element \"smtp\" in \"Servers\" is kept", "every message is dropped",
     "add an \"smtp\" with \"description\" and \"address\" to \"Servers\"",
     [](const Settings& it) { return it.kept.servers.empty(); }},
    {kError, "Profiles/", "no-profiles", "there is no profile",
     "no element \"smtp\" in \"Profiles\" is kept", "no event sends a mail",
     "add an \"smtp\" with \"ID\", \"description\", \"from\", \"subject\" and a \"to\" to "
     "\"Profiles\"",
     [](const Settings& it) { return it.kept.profiles.empty(); }},
    {kWarning, "Web/address", "web-address", "the web server cannot be reached",
     "\"$webAddress\" is more or less than a host and a port",
     "\"[Web Server Unreachable]\" stands in the place of every link",
     "write it as \"http://host\" or \"http://host:81\"",
     [](const Settings& it) { return it.HasWeb() && !it.IsWebReachable(); }},
    {kWarning, "Web/address", "web-address", "the web server is asked without encryption",
     "\"$webAddress\" asks for https, which the plug-in does not speak",
     "it is asked by http at port $webPort", "write an address where the web server speaks http",
     [](const Settings& it) {
       return it.HasWeb() && it.IsWebReachable() &&
              ::strncasecmp(it.kept.webAddress.c_str(), "https://", 8) == 0;
     }},
    {kWarning, nullptr, "file-mode", "everybody on this machine can read the passwords",
     "the file's permissions allow it", "the plug-in leaves them as they are", "chmod o= $file",
     [](const Settings& it) {
       return it.IsOpenToAll() &&
              std::any_of(it.kept.servers.begin(), it.kept.servers.end(),
                          [](const SmtpServer& server) { return !server.password.empty(); });
     }},
};

struct Server {
  const TiXmlElement& element;
  const SmtpServer& kept;
  const bool isRepeated;

  Place At(const char* in) const { return PlaceOf(element, in); }
  Facts Words() const {
    Facts facts = kept;
    facts["name"] = NameOf(element);
    return facts;
  }
  bool IsAddressGood() const { return IsHostName(kept.address) || IsBracketedIPv6(kept.address); }
  bool Holds(const char* text) const { return kept.address.find(text) != std::string::npos; }
  bool IsEncrypted() const {
    return kept.UseSSL == use_ssl::kSmtps || kept.UseSSL == use_ssl::kStartTls;
  }
};

constexpr const char* kUnreachable = "$name cannot be reached";
constexpr const char* kWriteHost = "write the name or address of the mail server, and nothing else";

constexpr Rule<Server> kServerRules[] = {
    {kError, "address", "server-address", kUnreachable, "its address is empty", kTransferFails,
     kWriteHost, [](const Server& it) { return it.kept.address.empty(); }},
    {kError, "address", "server-address", kUnreachable,
     "\"$address\" is an IPv6 address without brackets", kTransferFails, "write \"[$address]\"",
     [](const Server& it) { return IsIPv6Literal(it.kept.address); }},
    {kError, "address", "server-address", kUnreachable, "\"$address\" is a URL", kTransferFails,
     kWriteHost, [](const Server& it) { return it.Holds("://"); }},
    {kError, "address", "server-address", kUnreachable, "\"$address\" holds a port", kTransferFails,
     "write the port as the attribute \"port\"",
     [](const Server& it) {
       return !it.IsAddressGood() && it.Holds(":") && !it.Holds("://") &&
              !IsIPv6Literal(it.kept.address);
     }},
    {kError, "address", "server-address", kUnreachable,
     "\"$address\" holds characters that no host name has", kTransferFails, kWriteHost,
     [](const Server& it) {
       return !it.IsAddressGood() && !it.kept.address.empty() && !it.Holds(":");
     }},
    {kError, "port", "port", kUnreachable, "its port $port is not within 1 to 65535",
     kTransferFails, "write the port of the mail server: 25, 465 or 587 most often",
     [](const Server& it) { return it.kept.port < 1 || it.kept.port > kLargestPort; }},
    {kWarning, "UseSSL", "use-ssl", "$name is spoken to without encryption",
     "its UseSSL $UseSSL is none of 0, 1 and 2", "it counts as 0",
     "write 0 for none, 1 for TLS from the first byte, 2 for STARTTLS",
     [](const Server& it) { return !it.IsEncrypted() && it.kept.UseSSL != use_ssl::kPlain; }},
    {kError, "UseSSL", "tls-mismatch", "$name is spoken to without TLS from the first byte",
     "its UseSSL is $UseSSL, while servers at port $port wait for TLS", kTransferFails,
     "write UseSSL=\"1\"",
     [](const Server& it) { return it.kept.port == 465 && it.kept.UseSSL != use_ssl::kSmtps; }},
    {kError, "UseSSL", "tls-mismatch", "$name is spoken to with TLS from the first byte",
     "its UseSSL is 1, while servers at port $port begin without", kTransferFails,
     "write UseSSL=\"2\" for STARTTLS, or port=\"465\"",
     [](const Server& it) {
       return (it.kept.port == 25 || it.kept.port == 587) && it.kept.UseSSL == use_ssl::kSmtps;
     }},
    {kWarning, "Authentication/username", "login", "$name is used without login",
     "its user name is empty", "the password is never sent",
     "write the user name, or remove \"Authentication\"",
     [](const Server& it) { return it.kept.username.empty() && !it.kept.password.empty(); }},
    {kWarning, "Authentication/password", "login", "$name is logged in to without password",
     "its password is empty", "the server decides about it",
     "write the password, or remove \"Authentication\"",
     [](const Server& it) { return !it.kept.username.empty() && it.kept.password.empty(); }},
    {kWarning, "Authentication/username", "login", "$name gets another login than this",
     "its user name holds a \":\"", "the user name ends there, and the password begins",
     "use a user name without \":\"",
     [](const Server& it) { return it.kept.username.find(':') != std::string::npos; }},
    {kWarning, "Authentication/password", "plain-login", "$name gets the password unencrypted",
     "its UseSSL is not 1 or 2", "everybody on the way can read it",
     "write UseSSL=\"2\", if the server knows STARTTLS",
     [](const Server& it) {
       return !it.kept.username.empty() && !it.IsEncrypted() && !IsLoopback(it.kept.address);
     }},
    {kWarning, "description", "repeated-server", "$name says the same as a server before it",
     "all its values are the same", "each message is tried at it twice", "remove one of them",
     [](const Server& it) { return it.isRepeated; }},
};

bool ComesBefore(const SmtpServer* a, const SmtpServer* b) {
  const auto values = [](const SmtpServer& it) {
    return std::tie(it.description, it.address, it.port, it.UseSSL, it.username, it.password);
  };
  return values(*a) < values(*b);
}

}  // namespace

void AddDeliveryFindings(const std::string& path, const TiXmlElement& block, const Reading& reading,
                         const NotifyConfig& kept, Findings& findings) {
  Apply(kSettingRules, Settings{path, block, kept}, findings);
  std::set<const SmtpServer*, decltype(&ComesBefore)> before(&ComesBefore);
  auto element = reading.Servers().begin();
  for (const SmtpServer& server : kept.servers) {
    Apply(kServerRules, Server{**element++, server, !before.insert(&server).second}, findings);
  }
}

}  // namespace tvx::tool
