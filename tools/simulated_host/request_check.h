// The form that every record the plug-in hands to the host must have.
#pragma once

#include <string>
#include <vector>

#include "host/host_records.h"

namespace tvx::tool {

// What is wrong with a request and the reply that came with it; empty when nothing is. Reads the
// payload of documents, log lines and chunks only as far as the request's length allows.
std::vector<std::string> FindRequestFaults(const HostRequest& request, const HostReply& reply);

}  // namespace tvx::tool
