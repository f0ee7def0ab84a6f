// What the host does between start and stop, step by step.
//
// A scenario file has one step a line; blank lines and lines that begin with "#" are skipped:
//
//   system FILE        send a full system document
//   update FILE        send a configuration document
//   event FILE         send an event document
//   camera STREAM CODEC [FILE]
//                      feed a stream's frames from now on (camera.h)
//   tick               send a tick beside those of every second
//   wait SECONDS       let the time pass
//   wait idle          until no program runs and every event has been reported on
//   wait delivered N   until N notifications have been delivered since the start
//   mail-server up     start the mail server, and wait until it is up
//   mail-server down   stop it, and wait until it is gone
//
// File names are relative to the folder of the scenario file. Documents are read with the scenario,
// so that a missing one is found before anything is sent.
#pragma once

#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "simulated_host/camera.h"

namespace tvx::tool {

enum class DocumentKind { System, Update, Event };

struct SendDocument {
  DocumentKind kind;
  std::string name;  // the file, for people
  std::string text;
};
struct SendTick {};
struct Pause {
  double seconds;
};
struct AwaitIdle {};
struct AwaitDelivered {
  int count;
};

struct SetMailServer {
  bool up;
};

struct StartCamera {
  Camera camera;
};

using Step = std::variant<SendDocument, SendTick, Pause, AwaitIdle, AwaitDelivered, SetMailServer,
                          StartCamera>;

// The scenario cannot be used; the text names file and line.
class ScenarioError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// All throw ScenarioError.
SendDocument ReadDocument(DocumentKind kind, const std::string& path);
StartCamera ReadCameraStep(const std::string& text, const std::string& folder);
// Steps with the mail server are an error where the host has none.
std::vector<Step> ReadScenario(const std::string& path, bool hasMailServer);

// When there are cameras but no system document, puts the document that goes with them (made by
// camera_document.h) in front of the first camera.
void CompleteCameras(std::vector<Step>& steps);

}  // namespace tvx::tool
