// A client's side of serve: its request lines, their answers, and the queue
// of lines waiting for it.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "serve/out_queue.h"
#include "serve/protocol.h"
#include "serve/request_lines.h"

namespace kavo::serve {
namespace {

using nlohmann::json;

std::vector<json> Answer(ClientProtocol& protocol, const std::string& line, const ServerState& state = {}) {
  std::vector<json> objects;
  for (const std::string& text : protocol.Answer(line, state)) objects.push_back(json::parse(text));
  return objects;
}

std::vector<std::string> Classes(const std::vector<json>& objects) {
  std::vector<std::string> classes;
  for (const json& object : objects) classes.push_back(object.at("class"));
  return classes;
}

TEST(RequestLines, SplitsLinesAndDropsTooLongOnesWhicheverWayTheBytesCome) {
  const std::string stream = "?AB\r\n0123456789abc\n\n?C\n?DE";
  const std::vector<std::pair<std::string, bool>> expected = {{"?AB", false}, {"", true}, {"", false}, {"?C", false}};
  for (size_t chunk : {stream.size(), size_t{1}, size_t{5}}) {
    RequestLines requests(8);
    std::vector<RequestLines::Line> lines;
    for (size_t at = 0; at < stream.size(); at += chunk)
      requests.Add(stream.data() + at, std::min(chunk, stream.size() - at), &lines);
    std::vector<std::pair<std::string, bool>> got;
    for (const auto& line : lines) got.emplace_back(line.text, line.tooLong);
    EXPECT_EQ(got, expected) << "chunks of " << chunk;
  }
}

TEST(OutQueue, DropsTheOldestWholeLinesAndKeepsTheNewest) {
  OutQueue queue(10);
  for (const char* text : {"aaaa", "bbbb", "cccc"}) queue.Push(std::make_shared<const std::string>(text));
  EXPECT_EQ(queue.Dropped(), 1u);
  std::vector<OutLine> taken;
  queue.TakeAll(&taken);
  std::vector<std::string> kept;
  for (const OutLine& line : taken) kept.push_back(*line);
  EXPECT_EQ(kept, (std::vector<std::string>{"bbbb", "cccc"}));
  EXPECT_TRUE(queue.Empty());
  queue.Push(std::make_shared<const std::string>(std::string(50, 'x')));  // bigger than the bound: still sent
  queue.TakeAll(&taken);                                                  // replaces what the last take left
  ASSERT_EQ(taken.size(), 1u);
  EXPECT_EQ(taken[0]->size(), 50u);
}

TEST(Protocol, EachRequestLineIsAnsweredOnItsOwn) {
  const struct {
    const char* line;
    std::vector<std::string> classes;
  } cases[] = {
      {"?VERSION;", {"VERSION"}},
      {"?VERSION;?DEVICES;", {"VERSION", "DEVICES"}},
      {"?VERSION", {"VERSION"}},
      {"", {}},
      {"?POLL;", {"POLL"}},
      {"?FOO;?VERSION;", {"ERROR"}},
      {"?WATCH={\"json\":tru", {"ERROR"}},
      {"?WATCH={\"json\":1};", {"ERROR"}},
      {"?WATCH=[true];", {"ERROR"}},
      {"?WATCH={\"raw\":\"x\"};", {"ERROR"}},
      {"?WATCH={\"device\":1};", {"ERROR"}},
      {"?DEVICE={\"bps\":9600};", {"ERROR"}},
      {"hello \x01\xff\"\\", {"ERROR"}},
      {"?VERSIONX;", {"ERROR"}},
      {"?DEVICE;", {"DEVICE"}},
      {"?WATCH;", {"WATCH"}},
      {"?WATCH={\"enable\":true,\"json\":true};?POLL;", {"DEVICES", "WATCH", "POLL"}},
  };
  ClientProtocol protocol;  // one client: an error on a line leaves the next lines answered
  for (const auto& c : cases) EXPECT_EQ(Classes(Answer(protocol, c.line)), c.classes) << c.line;
  EXPECT_EQ(Answer(protocol, "?FOO;")[0]["message"], "Unrecognized request '?FOO'");
}

TEST(Protocol, WatchPolicyFollowsTheRequests) {
  const struct {
    const char* request;
    bool json, nmea;
  } steps[] = {
      {"?WATCH={\"enable\":true};", true, false},  // a watcher asking for nothing gets the reports
      {"?WATCH={\"enable\":true,\"json\":false,\"nmea\":true};", false, true},
      {"?WATCH={\"enable\":false};", false, false},
      {"?WATCH={\"enable\":true,\"raw\":1};", false, true},
      {"?WATCH={\"enable\":true,\"json\":true,\"nmea\":false,\"scaled\":true};", true, false},
      {"?WATCH={\"json\":tru", true, false},  // a broken request changes nothing
  };
  ClientProtocol protocol;
  EXPECT_FALSE(protocol.WantsJson() || protocol.WantsNmea());
  for (const auto& step : steps) {
    const std::vector<json> answers = Answer(protocol, step.request);
    EXPECT_EQ(protocol.WantsJson(), step.json) << step.request;
    EXPECT_EQ(protocol.WantsNmea(), step.nmea) << step.request;
    if (answers.back()["class"] == "WATCH") {
      EXPECT_EQ(answers.back()["json"], step.json) << step.request;
    }
  }
}

TEST(Protocol, PollAndDevicesAnswerForEveryDevice) {
  ClientProtocol protocol;
  ServerState state;
  state.now = "2026-01-01T00:00:00.000Z";
  state.devices.resize(2);
  state.devices[0].device.path = "/dev/ttyUSB0";  // not there, never had a fix
  ServedDevice& live = state.devices[1];
  live.device = {"/dev/ttyACM0", "NMEA0183", 9600, "2026-01-01T00:00:00.000Z"};
  live.tpv = R"({"class":"TPV","device":"/dev/ttyACM0","mode":3,"lat":48.1})";
  live.sky = R"({"class":"SKY","device":"/dev/ttyACM0","satellites":[]})";
  const json poll = Answer(protocol, "?POLL;", state)[0];
  EXPECT_EQ(poll["active"], 1);
  EXPECT_EQ(poll["time"], state.now);
  EXPECT_EQ(poll["tpv"], json::parse(R"([{"class":"TPV","device":"/dev/ttyUSB0","mode":0},)" + live.tpv + "]"));
  EXPECT_EQ(poll["sky"], json::parse("[" + live.sky + "]"));
  const json devices = Answer(protocol, "?DEVICES;", state)[0]["devices"];
  ASSERT_EQ(devices.size(), 2u);
  EXPECT_EQ(devices[0], json::parse(R"({"class":"DEVICE","path":"/dev/ttyUSB0","activated":0})"));
  EXPECT_EQ(devices[1]["bps"], 9600);
  EXPECT_EQ(devices[1]["activated"], live.device.activated);
  const std::vector<json> watch = Answer(protocol, R"(?WATCH={"enable":true,"device":"/dev/ttyACM0"};)", state);
  EXPECT_EQ(watch[0]["devices"].size(), 2u);  // every device is listed, the one watched named
  EXPECT_EQ(watch[1]["device"], "/dev/ttyACM0");
  EXPECT_TRUE(protocol.Watches("/dev/ttyACM0"));
  EXPECT_FALSE(protocol.Watches("/dev/ttyUSB0"));
}

}  // namespace
}  // namespace kavo::serve
