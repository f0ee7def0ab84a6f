// The system document that a host with the given cameras would send.
#pragma once

#include <string>
#include <vector>

#include "simulated_host/camera.h"

namespace tvx::tool {

// What the plug-in is to keep of each camera before an event, in seconds.
constexpr int kPreAlarmSeconds = 5;

// Every action that the event documents name notifies about every camera, and every source group
// that they name has them all. Cameras are listed by their streams; a sub-channel's stream belongs
// to the camera without one. Never fails: documents that cannot be read name nothing.
std::string MakeSystemDocument(const std::vector<Camera>& cameras,
                               const std::vector<std::string>& eventDocuments);

}  // namespace tvx::tool
