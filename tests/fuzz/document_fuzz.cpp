// Input: a document of the host, or notify.xml; all readers get the same.
#include <string>

#include "config/notify_config.h"
#include "config/notify_reader.h"
#include "config/notify_writer.h"
#include "config/xml_document.h"
#include "fuzz/input.h"
#include "service/config_change.h"
#include "service/event_document.h"

namespace {

// The configuration of a document as it would be saved; empty when the document is rejected.
std::string Saved(const TiXmlElement& root) {
  tvx::NotifyConfig config;
  if (!tvx::ReadNotify(root, config)) return {};
  return tvx::PrintDocument(*tvx::BuildNotifyDocument(config));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using tvx::test::Require;
  const std::string_view text = tvx::test::AsText(data, size);
  const tvx::ParsedDocument parsed = tvx::ParseDocument(text.data(), text.size());
  Require((parsed.outcome == tvx::ParseOutcome::Parsed) == (parsed.document != nullptr),
          "a document comes with the outcome that says so");
  const TiXmlElement* const root = parsed.Root();
  if (root == nullptr) return 0;

  tvx::ReadEventDocument(*root);
  tvx::ReadSystemDocument(*root);

  // What has been accepted once is read again at the next start, whatever it holds.
  const std::string saved = Saved(*root);
  if (saved.empty()) return 0;
  const tvx::ParsedDocument reparsed = tvx::ParseDocument(saved.data(), saved.size());
  Require(reparsed.Root() != nullptr, "what is saved can be parsed");
  Require(Saved(*reparsed.Root()) == saved, "what is saved is read again as it was");
  return 0;
}
