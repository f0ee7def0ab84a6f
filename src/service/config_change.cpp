#include "service/config_change.h"

#include <algorithm>
#include <map>
#include <memory>

#include "config/notify_reader.h"
#include "config/system_settings.h"

namespace tvx {
namespace {

using Profiles = std::map<std::int32_t, NotifyProfile>;

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

std::vector<std::int32_t> ConcernedProfiles(const std::vector<SmtpServer>& serversBefore,
                                            const Profiles& profilesBefore,
                                            const NotifyConfig& config) {
  const bool all = ConcernsAll(serversBefore, config.servers);
  std::vector<std::int32_t> concerned;
  for (const auto& [id, profile] : config.profiles) {
    const auto before = profilesBefore.find(id);
    const bool same =
        before != profilesBefore.end() && HasSameMailSettings(before->second, profile);
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
  NotifyConfig config = state.config;
  const bool wasOn = config.secondReviewerMode;
  config.secondReviewerMode = document.secondReviewer.value_or(wasOn);
  const bool changesMode = config.secondReviewerMode != wasOn;
  if (changesMode && config.secondReviewerMode && ClearAttachFlags(config)) {
    outcome.log.Add(LogLevel::Information, "Disabled all attachments for second reviewer mode.");
  }
  for (const auto& [id, seconds] : document.preAlarms) config.preAlarms[id] = seconds;
  auto snapshot = std::make_shared<const NotifyConfig>(config);

  EventActionTable actions =
      document.eventActions ? std::move(*document.eventActions) : state.eventActions;
  state.buffers.SelectStreams(std::move(document.directory), actions.sources, outcome.dropped);
  // Nothing below can fail.
  state.eventActions.sources.swap(actions.sources);
  state.config = std::move(config);
  state.snapshot = std::move(snapshot);
  return changesMode;
}

std::optional<std::vector<std::int32_t>> ApplyNotifyChange(const TiXmlElement& root,
                                                           ServiceState& state) {
  const std::vector<SmtpServer> servers = state.config.servers;
  const Profiles profiles = state.config.profiles;
  const bool accepted = ReadNotify(root, state.config);
  // A rejected block may have brought delivery settings all the same.
  PublishToWorker(state);
  if (!accepted) return std::nullopt;
  state.configurationChanged = true;
  return ConcernedProfiles(servers, profiles, state.config);
}

void PublishToWorker(ServiceState& state) {
  state.snapshot = std::make_shared<const NotifyConfig>(state.config);
  state.buffers.SetByteLimit(MegabytesToBytes(state.config.EmailSizeLimitMB));
}

}  // namespace tvx
