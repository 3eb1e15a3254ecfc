#include "session/receiver_settings.h"

#include <cctype>
#include <sstream>

#include "session/console.h"

namespace kavo::cli {
namespace {

constexpr size_t kMaxTalkers = 16;  // as many as the library keeps

// "gp, GL" as "GP,GL"; false for an empty list, too many ids or an id that
// is not two letters.
bool NormaliseTalkers(const std::string& list, std::string* talkers) {
  std::istringstream in(list);
  std::string id, result;
  size_t count = 0;
  while (std::getline(in, id, ',')) {
    id.erase(0, id.find_first_not_of(' '));
    id.erase(id.find_last_not_of(' ') + 1);
    if (id.size() != 2 || !std::isalpha(static_cast<unsigned char>(id[0])) ||
        !std::isalpha(static_cast<unsigned char>(id[1])) || ++count > kMaxTalkers)
      return false;
    for (char& c : id) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    result += (result.empty() ? "" : ",") + id;
  }
  if (result.empty() || list.back() == ',') return false;
  *talkers = result;
  return true;
}

}  // namespace

std::string ReceiverOptionsHelp(size_t column) {
  const std::string indent(column, ' ');
  const auto option = [&](const std::string& name, const char* first) {
    const std::string head = "  " + name;
    return (head.size() < column ? head + indent.substr(head.size()) : head + "\n" + indent) + first + "\n";
  };
  return option("--talkers LIST", "the talkers whose sentences are read, e.g. GP,GL") + indent +
         "(default: every standard one, GP,GN,GL,GA,GB,BD,GQ,QZ)\n" +
         option("--checksums MODE", "ignore, verify (default) or require: whether a") + indent +
         "sentence with a wrong checksum, or without one, is\n" + indent +
         "dropped. --talkers GP --checksums ignore reads a\n" + indent +
         "receiver as an application with the defaults does\n";
}

bool ReadReceiverOption(OptionReader& reader, ReceiverSettings* settings, bool* ok) {
  std::string value;
  if (reader.Name() == "--talkers") {
    *ok = reader.Value(&value) && (NormaliseTalkers(value, &settings->talkers) ||
                                   reader.Invalid(value, "talker ids of two letters separated by commas, e.g. GP,GL"));
    return true;
  }
  if (reader.Name() != "--checksums") return false;
  *ok = reader.Value(&value);
  std::string mode = value;
  for (char& c : mode) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (*ok && mode != "ignore" && mode != "verify" && mode != "require")
    *ok = reader.Invalid(value, "ignore, verify or require");
  if (*ok) settings->checksums = mode;
  return true;
}

bool ApplyReceiverSettings(const ReceiverSettings& settings) {
  return SetEnvironment("KAVOGPS_TALKERS", settings.talkers) && SetEnvironment("KAVOGPS_CHECKSUMS", settings.checksums);
}

std::string TalkersHint(const std::set<std::string>& seen, const ReceiverSettings& settings) {
  if (seen.empty()) return {};
  std::string list, wider = settings.talkers;
  for (const std::string& talker : seen) {
    if (("," + settings.talkers + ",").find("," + talker + ",") != std::string::npos) return {};
    list += (list.empty() ? "" : ", ") + talker;
    wider += "," + talker;
  }
  return "only sentences of the talker" + std::string(seen.size() > 1 ? "s " : " ") + list +
         " came, which are not read (reading " + settings.talkers + "); read them with --talkers " + wider;
}

}  // namespace kavo::cli
