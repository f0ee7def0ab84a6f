#include "service/config_change.h"

#include <algorithm>
#include <memory>

#include "config/notify_reader.h"
#include "config/system_settings.h"

namespace tvx {
namespace {

bool HasSameMailSettings(const NotifyProfile& a, const NotifyProfile& b) {
  return a.from == b.from && a.to == b.to && a.cc == b.cc && a.bcc == b.bcc &&
         a.subject == b.subject && a.body == b.body;
}

// Whether mail may now go another way for every profile: a server has gone, or there was none.
bool ConcernsAll(const std::vector<SmtpServer>& before, const std::vector<SmtpServer>& after) {
  if (before.empty() || after.size() < before.size()) return true;
  return std::any_of(before.begin(), before.end(), [&](const SmtpServer& server) {
    return std::find(after.begin(), after.end(), server) == after.end();
  });
}

std::vector<std::int32_t> ConcernedProfiles(const NotifyConfig& before, const NotifyConfig& after) {
  const bool all = ConcernsAll(before.servers, after.servers);
  std::vector<std::int32_t> concerned;
  for (const auto& [id, profile] : after.profiles) {
    const auto previous = before.profiles.find(id);
    const bool same =
        previous != before.profiles.end() && HasSameMailSettings(previous->second, profile);
    if (all || !same) concerned.push_back(id);
  }
  return concerned;
}

}  // namespace

SystemDocument ReadSystemDocument(const TiXmlElement& root) {
  return {std::make_shared<const SystemDirectory>(root), ReadEventActionTable(root),
          ReadSecondReviewer(root), ReadPreAlarms(root)};
}

bool ApplySystemDocument(SystemDocument document, ServiceState& state, IntakeOutcome& outcome) {
  NotifyConfig config = *state.config;
  const bool wasOn = config.secondReviewerMode;
  config.secondReviewerMode = document.secondReviewer.value_or(wasOn);
  const bool changesMode = config.secondReviewerMode != wasOn;
  if (changesMode && config.secondReviewerMode && ClearAttachFlags(config)) {
    outcome.log.Add(LogLevel::Information, "Disabled all attachments for second reviewer mode.");
  }
  for (const auto& [id, seconds] : document.preAlarms) config.preAlarms[id] = seconds;
  auto changed = std::make_shared<const NotifyConfig>(std::move(config));

  EventActionTable actions =
      document.eventActions ? std::move(*document.eventActions) : state.eventActions;
  state.buffers.SelectStreams(std::move(document.directory), actions.sources, outcome.dropped);
  // Nothing below can fail.
  state.eventActions.sources.swap(actions.sources);
  state.config = std::move(changed);
  return changesMode;
}

std::optional<std::vector<std::int32_t>> ApplyNotifyChange(const TiXmlElement& root,
                                                           ServiceState& state) {
  NotifyConfig config = *state.config;
  std::optional<std::vector<std::int32_t>> concerned;
  if (ReadNotify(root, config)) {
    concerned = ConcernedProfiles(*state.config, config);
  }
  // A rejected block may have brought delivery settings all the same.
  ReplaceConfig(std::move(config), state);
  if (concerned) state.configurationChanged = true;
  return concerned;
}

void ReplaceConfig(NotifyConfig config, ServiceState& state) {
  state.config = std::make_shared<const NotifyConfig>(std::move(config));
  state.buffers.SetByteLimit(MegabytesToBytes(state.config->EmailSizeLimitMB));
}

}  // namespace tvx
