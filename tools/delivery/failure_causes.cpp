#include "delivery/failure_causes.h"

#include <cctype>
#include <cstddef>
#include <string_view>

namespace tvx::tool {
namespace {

// The first row that fits holds.
constexpr FailureCause kCauses[] = {
    {"start", "", "No such file", "There is no program \"curl\" in the working folder.",
     "Put one there, as with: ln -s /usr/bin/curl curl"},
    {"start", "", "", "The program \"curl\" in the working folder cannot be started.",
     "Make it one that this user may run, as with: chmod +x curl"},
    {"signal", "", "", "A signal ended curl.",
     "Look for a lack of memory, and for who ends programs on this machine."},
    {"1", "", "", "This curl cannot send mail, or not with TLS.",
     "Take one that lists smtp and smtps among its protocols (./curl -V)."},
    {"3", "", "", "The server's address is no host name, or its port is no port.",
     "Write the bare name or IP address as \"address\", and the port as \"port\"."},
    {"6", "", "", "Nobody knows a host of this name.",
     "Look for a typing error in \"address\", and whether this machine can look up names (DNS)."},
    {"7", "", "refused", "The machine is there, but nobody listens at this port.",
     "Set \"port\" to the mail server's (25, 465 or 587 most often), and see whether it runs."},
    {"7", "", "", "The server's address cannot be reached from here.",
     "Look at \"address\", the network and the routes of this machine."},
    {"28", "connection", "", "The server's address does not answer.",
     "Look at \"address\" and \"port\", and at firewalls: many networks let nobody out at port "
     "25."},
    {"28", "TLS", "", "The server did not finish the TLS handshake in time.",
     "Set \"UseSSL\" as the port wants it: 1 at port 465, 2 at port 587."},
    {"28", "greeting", "",
     "The server takes the connection and does not greet, as one does that waits for TLS.",
     "Set \"UseSSL\" as the port wants it: 1 at port 465, 2 at port 587, 0 or 2 at port 25."},
    {"28", "", "", "The server fell silent.",
     "Look into the server's log; a mail that it may have taken can come twice."},
    {"35", "", "wrong version", "The server does not speak TLS from the first byte at this port.",
     "Set \"UseSSL\" to 2 (STARTTLS), or \"port\" to the one for TLS, 465 most often."},
    {"35", "", "", "Server and curl come to no TLS connection.",
     "Set \"UseSSL\" as the port wants it: 1 at port 465, 2 at port 587; update the older of "
     "both."},
    {"60", "", "", "The server's certificate is not trusted.",
     "Name the right server in \"address\", or the authority of its certificate as "
     "\"CertificateFile\"."},
    {"64", "TLS", "454", "The server cannot do TLS just now.",
     "Look at the server's certificate and log."},
    {"64", "", "", "The server does not offer STARTTLS.",
     "Set \"UseSSL\" to 1 where the port is 465, or to 0 if nobody can listen on the way."},
    {"67", "login", "4xx", "The server cannot check logins just now.",
     "Send again later, and tell who runs the server: "
     "without standard delivery such a mail is given up."},
    {"67", "", "", "The server refuses the user name or the password.",
     "Set both in \"Authentication\"; some providers want a password made for programs."},
    {"", "", "421", "The server is too busy, or about to stop.",
     "Wait: it is tried again; lower the number of mails if it stays so."},
    {"", "", "452", "The server has no room for the mail just now.",
     "Tell who runs the server; it is tried again meanwhile."},
    {"", "", "552", "The mail is larger than the server or the mailbox takes.",
     "Lower \"EmailSizeLimitMB\" or \"MaxVideoSeconds\", or have the mailbox emptied."},
    {"", "", "538", "The server wants TLS before the login.", "Set \"UseSSL\" to 2 (STARTTLS)."},
    {"", "", "STARTTLS", "The server takes mail by TLS only.",
     "Set \"UseSSL\" to 2 (STARTTLS), or to 1 and \"port\" to 465."},
    {"", "", "530", "The server takes no mail without login.",
     "Give user name and password in \"Authentication\", and set \"UseSSL\" to 2 if it wants "
     "that."},
    {"", "greeting", "5xx", "The server takes no mail from this machine.",
     "Use the provider's server for customers (port 587, with login), or have the server let it "
     "in."},
    {"", "sender", "5xx", "The server refuses the sender.",
     "Set \"from\" to an address that this login may send as."},
    {"", "sender", "4xx", "The server refuses the sender for now.",
     "Wait: it is tried again; look into the server's log if it stays so."},
    {"", "recipients", "5xx", "The server refuses a recipient, and with it the mail for all.",
     "Look for typing errors in \"to\", \"cc\" and \"bcc\"; to relay, most servers want a login."},
    {"", "recipients", "4xx", "The server refuses a recipient for now.",
     "Wait: it is tried again; many servers want a minute before the first mail of a stranger."},
    {"", "message", "5xx", "The server refuses what is in the mail.",
     "Look at its reply and log: spam filters and forbidden attachments answer so."},
    {"", "message", "4xx", "The server refuses the mail for now.",
     "Wait: it is tried again; look into the server's log if it stays so."},
    {"8", "greeting", "", "What answers at this port is no mail server.",
     "Look at \"address\" and \"port\"."},
    {"26", "", "", "The message's file is gone, or cannot be read.",
     "Leave the files in data/ alone, and let the server's process read them."},
    {"55", "", "", "The connection broke while the mail was sent.",
     "Look at the network and the server's log; filters of mail on the way break off, too."},
    {"56", "", "", "The connection broke while a reply was due.",
     "Look at the network and the server's log; filters of mail on the way break off, too."},
    {"", "", "", "curl failed for a reason of its own.",
     "Look its exit value up in its manual (man curl)."},
    {"log", "", "Failed to prepare email notification file",
     "The mail could not be written down: the disk is full, or an address of the profile is none.",
     "Make room on the volume of data/ and let the server's process write there; run notifypi "
     "check."},
    {"log", "", "Unable to create data directory",
     "There is no folder data/ for the mail, and none can be made.",
     "Let the server's process write in its working folder, and remove a file of that name."},
    {"log", "", "Unable to free up space", "The disk is full, and the mail cannot wait on it.",
     "Keep 100 MiB free on the volume of data/."},
    {"log", "", "Minimum free space threshold exceeded",
     "The disk is full, and a mail that waited gave way.",
     "Keep 100 MiB free on the volume of data/."},
    {"log", "", "in QuickTime format",
     "A movie could not be written: the disk is full, or data/ is "
     "closed to the plug-in.",
     "Make room on the volume of data/, and let the server's process write there."},
    {"log", "", "Unable to locate corresponding video frame",
     "No picture of the event's camera has come, so the mail has no movie of it.",
     "See that the camera is in the system document, delivers pictures, and has events that "
     "notify."},
    {"log", "", "notification request for an unknown profile",
     "The event names a profile that the configuration does not have.",
     "Write one of the configuration's IDs into the event, or make the profile."},
};

bool Fits(std::string_view pattern, std::string_view reply) {
  if (pattern.empty()) return true;
  if (std::isdigit(static_cast<unsigned char>(pattern[0])) == 0) {
    return reply.find(pattern) != std::string_view::npos;
  }
  if (reply.size() < pattern.size()) return false;
  for (std::size_t at = 0; at < pattern.size(); ++at) {
    if (pattern[at] != 'x' && pattern[at] != reply[at]) return false;
  }
  return true;
}

bool FitsOrIsEmpty(std::string_view column, std::string_view value) {
  return column.empty() || column == value;
}

}  // namespace

const FailureCause& CauseOf(const std::string& exit, const std::string& stage,
                            const std::string& reply) {
  const FailureCause* row = kCauses;
  while (!FitsOrIsEmpty(row->exit, exit) || !FitsOrIsEmpty(row->stage, stage) ||
         !Fits(row->reply, reply)) {
    ++row;  // at last comes one that fits all
  }
  return *row;
}

const FailureCause* CauseOfLogLine(const std::string& line) {
  for (const FailureCause& row : kCauses) {
    if (std::string_view(row.exit) == "log" && Fits(row.reply, line)) return &row;
  }
  return nullptr;
}

}  // namespace tvx::tool
