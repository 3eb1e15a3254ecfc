#include "nmea/receiver_options.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include "log/logger.h"
#include "platform/platform.h"
#include "support/ini_reader.h"
#include "support/library_ini_path.h"

namespace kavo::nmea {
namespace {

constexpr size_t kMaxValue = 260;

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

char Upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

bool SameIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (Upper(a[i]) != Upper(b[i])) return false;
  return true;
}

// One option's text: the environment's when it is set and not empty, else
// the .ini's; `key` names where it came from, for the log.
struct Setting {
  std::string value;
  const char16_t* key = nullptr;
};

Setting Find(const WideString& iniPath, const char16_t* iniKey, const char* variable, const char16_t* variableKey) {
  if (const char* fromEnvironment = std::getenv(variable); fromEnvironment && *fromEnvironment)
    return {fromEnvironment, variableKey};
  char16_t buffer[kMaxValue] = {};
  if (iniPath.empty() || ReadIniString(iniPath, u"Receiver", iniKey, u"", buffer, kMaxValue) == 0) return {};
  return {ToUtf8(buffer), iniKey};
}

template <class Apply>
void Use(const Setting& setting, Apply apply, const char16_t* fallback) {
  if (!setting.key || apply(setting.value)) return;
  Logger::Instance().Format(u"Receiver option %s=%s is not valid; %s is used\n", setting.key, FromUtf8(setting.value),
                            fallback);
}

}  // namespace

bool ReceiverOptions::SetTalkers(std::string_view list) {
  char16_t talkers[kMaxTalkers][2];
  size_t count = 0;
  while (true) {
    const size_t comma = list.find(',');
    const std::string_view id = Trim(list.substr(0, comma));
    if (id.size() != 2 || count == kMaxTalkers) return false;
    for (size_t i = 0; i < 2; ++i) {
      const char c = Upper(id[i]);
      if (c < 'A' || c > 'Z') return false;
      talkers[count][i] = static_cast<char16_t>(c);
    }
    bool repeated = false;  // "GP,GP" is "GP"
    for (size_t i = 0; i < count; ++i)
      repeated = repeated || (talkers[i][0] == talkers[count][0] && talkers[i][1] == talkers[count][1]);
    if (!repeated) ++count;
    if (comma == std::string_view::npos) break;
    list.remove_prefix(comma + 1);
  }
  std::copy(&talkers[0][0], &talkers[0][0] + 2 * count, &talkers_[0][0]);
  count_ = count;
  return true;
}

bool ReceiverOptions::SetChecksums(std::string_view name) {
  name = Trim(name);
  if (SameIgnoringCase(name, "ignore"))
    checksums_ = ChecksumMode::kIgnore;
  else if (SameIgnoringCase(name, "verify"))
    checksums_ = ChecksumMode::kVerify;
  else if (SameIgnoringCase(name, "require"))
    checksums_ = ChecksumMode::kRequire;
  else
    return false;
  return true;
}

bool ReceiverOptions::HasAcceptedTalker(WideView text) const {
  for (size_t at = text.find(u'$'); at != WideView::npos && at + 2 < text.size(); at = text.find(u'$', at + 1))
    if (Accepts(text[at + 1], text[at + 2])) return true;
  return false;
}

ReceiverOptions ReadReceiverOptions(const WideString& iniPath) {
  ReceiverOptions options;
  Use(
      Find(iniPath, u"Talkers", "KAVOGPS_TALKERS", u"KAVOGPS_TALKERS"),
      [&](const std::string& value) { return options.SetTalkers(value); }, u"GP");
  Use(
      Find(iniPath, u"Checksums", "KAVOGPS_CHECKSUMS", u"KAVOGPS_CHECKSUMS"),
      [&](const std::string& value) { return options.SetChecksums(value); }, u"ignore");
  return options;
}

ReceiverOptions LoadReceiverOptions() { return ReadReceiverOptions(LibraryIniPath(platform::ModulePath())); }

}  // namespace kavo::nmea
