#include "preview/chosen_profile.h"

#include <stdexcept>

#include "config/config_file.h"
#include "text/printable.h"

namespace tvx::tool {
namespace {

std::string ListOf(const NotifyConfig& config) {
  if (config.profiles.empty()) return "there is none";
  std::string list = "there are";
  for (const auto& [id, profile] : config.profiles) {
    list += "\n  " + std::to_string(id) + "  \"" + Printable(profile.description) + "\"";
  }
  return list;
}

}  // namespace

std::shared_ptr<const NotifyConfig> ReadConfiguration(const std::string& path) {
  const auto config = std::make_shared<NotifyConfig>();
  switch (TakeConfigDocument(ReadConfigFile(path), *config)) {
    case LoadOutcome::Loaded:
      return config;
    case LoadOutcome::Missing:
      throw std::runtime_error(path + ": there is no such file");
    case LoadOutcome::Rejected:
    case LoadOutcome::Failed:
      break;
  }
  throw std::runtime_error(path +
                           ": the plug-in cannot read this as a configuration: run \"notifypi " +
                           "check " + path + "\"");
}

const NotifyProfile& ChooseProfile(const NotifyConfig& config, std::optional<std::int32_t> id,
                                   const std::string& path) {
  if (!id) {
    if (config.profiles.size() == 1) return config.profiles.begin()->second;
    throw std::runtime_error(path + ": which profile? " + ListOf(config));
  }
  const auto found = config.profiles.find(*id);
  if (found != config.profiles.end()) return found->second;
  throw std::runtime_error(path + ": no profile " + std::to_string(*id) + ", " + ListOf(config));
}

}  // namespace tvx::tool
