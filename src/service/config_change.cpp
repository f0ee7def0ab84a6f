#include "service/config_change.h"

#include <algorithm>
#include <memory>
#include <set>
#include <tuple>

#include "config/notify_reader.h"
#include "config/system_settings.h"

namespace tvx {
namespace {

bool HasSameMailSettings(const NotifyProfile& a, const NotifyProfile& b) {
  return a.from == b.from && a.to == b.to && a.cc == b.cc && a.bcc == b.bcc &&
         a.subject == b.subject && a.body == b.body;
}

auto Fields(const SmtpServer& server) {
  return std::tie(server.description, server.address, server.port, server.UseSSL, server.username,
                  server.password);
}

// Whether mail may now go another way for every profile: a server has gone, or there was none.
bool AffectsAll(const std::vector<SmtpServer>& before, const std::vector<SmtpServer>& after) {
  if (before.empty() || after.size() < before.size()) return true;
  std::set<decltype(Fields(before.front()))> present;
  for (const SmtpServer& server : after) present.insert(Fields(server));
  return std::any_of(before.begin(), before.end(),
                     [&](const SmtpServer& server) { return present.count(Fields(server)) == 0; });
}

std::vector<std::int32_t> AffectedProfiles(const NotifyConfig& before, const NotifyConfig& after) {
  const bool all = AffectsAll(before.servers, after.servers) || before.delivery != after.delivery;
  std::vector<std::int32_t> affected;
  for (const auto& [id, profile] : after.profiles) {
    const auto previous = before.profiles.find(id);
    const bool same =
        previous != before.profiles.end() && HasSameMailSettings(previous->second, profile);
    if (all || !same) affected.push_back(id);
  }
  return affected;
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

NotifyChange ReadNotifyChange(const TiXmlElement& root,
                              const std::shared_ptr<const NotifyConfig>& before) {
  NotifyChange change{before, *before, false, {}};
  change.isAccepted = ReadNotify(root, change.config);
  if (change.isAccepted) change.affected = AffectedProfiles(*before, change.config);
  return change;
}

bool TakeNotifyChange(NotifyChange change, ServiceState& state) {
  if (state.config != change.before) return false;
  // A rejected block may have brought delivery settings all the same.
  ReplaceConfig(std::move(change.config), state);
  if (change.isAccepted) state.configurationChanged = true;
  return true;
}

void ReplaceConfig(NotifyConfig config, ServiceState& state) {
  state.config = std::make_shared<const NotifyConfig>(std::move(config));
  state.buffers.SetByteLimit(MegabytesToBytes(state.config->EmailSizeLimitMB));
}

}  // namespace tvx
