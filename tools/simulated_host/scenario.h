// What the host does between start and stop, step by step.
//
// A scenario file has one step a line (`notifypi host --help` lists them); blank lines and lines that
// begin with "#" are skipped. File names are relative to its folder. Documents are read with the
// scenario, so that a missing one is found before anything is sent.
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
