// How messages are written and handed over: the "Delivery" element of the configuration.
//
// The defaults are what hosts and their tools have always been given, byte for byte; each setting
// departs from it in one way.
// Threads: a plain value, its owner's.
#pragma once

#include <cstdint>
#include <string>
#include <tuple>

namespace tvx {

struct DeliverySettings {
  // Messages as RFC 5322 and MIME want them, and a verdict that follows the server's reply.
  bool Standard = false;
  bool VerifyCertificates = false;
  std::string CertificateFile;          // trusted beside the system's; empty for none. PEM
  std::int32_t MaxTransferSeconds = 0;  // 0: a transfer may take for ever
  std::string HelloName;  // the name for EHLO, as configured; see HelloName (mail/address.h)

  friend bool operator==(const DeliverySettings& a, const DeliverySettings& b) {
    const auto fields = [](const DeliverySettings& d) {
      return std::tie(d.Standard, d.VerifyCertificates, d.CertificateFile, d.MaxTransferSeconds,
                      d.HelloName);
    };
    return fields(a) == fields(b);
  }
  friend bool operator!=(const DeliverySettings& a, const DeliverySettings& b) { return !(a == b); }
};

}  // namespace tvx
