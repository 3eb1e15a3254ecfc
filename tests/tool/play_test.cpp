// The commands in-process: play's reports and each command's failures.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <regex>

#include "common/temp_dir.h"
#include "serve/nmea_socket.h"
#include "session/json_report.h"
#include "sim/nmea_format.h"
#include "tool_run.h"

namespace kavo::test {
namespace {

// Two epochs with a fix, walking; then the fix is lost.
const char kRecording[] =
    "$GPGGA,100000.00,4807.0380,N,01131.0020,E,1,10,1.0,520.0,M,38.8,M,,*69\r\n"
    "$GPGSA,A,3,02,03,06,07,08,11,12,13,17,18,,,1.7,1.0,1.4*36\r\n"
    "$GPGSV,1,1,03,02,49,211,38,03,33,115,33,06,26,309,31*40\r\n"
    "$GPRMC,100000.00,A,4807.0380,N,01131.0020,E,0.00,233.4,140524,,,A*6F\r\n"
    "$GPVTG,233.4,T,230.4,M,0.00,N,0.00,K,A*20\r\n"
    "$GPGGA,100001.00,4807.0379,N,01131.0018,E,1,10,1.0,520.0,M,38.8,M,,*65\r\n"
    "$GPGSA,A,3,02,03,06,07,08,11,12,13,17,18,,,1.7,1.0,1.4*36\r\n"
    "$GPGSV,1,1,03,02,49,211,37,03,33,115,31,06,26,309,31*4D\r\n"
    "$GPRMC,100001.00,A,4807.0379,N,01131.0018,E,0.97,233.3,140524,,,A*6A\r\n"
    "$GPVTG,233.3,T,230.3,M,0.97,N,1.80,K,A*27\r\n"
    "$GPGGA,100002.00,,,,,0,00,,,M,,M,,*4B\r\n"
    "$GPGSA,A,1,,,,,,,,,,,,,,,*1E\r\n"
    "$GPRMC,100002.00,V,,,,,,,140524,,,N*78\r\n"
    "$GPVTG,,T,,M,,N,,K,N*2C\r\n";

// Each epoch's TPV; on a slow machine one may lack fields, never mix epochs.
const std::vector<std::pair<std::string, std::string>> kTpvs = {
    {"T10:00:00",
     "\"mode\":3,\"status\":1,\"time\":\"2024-05-14T10:00:00.000Z\",\"lat\":48.1173,\"lon\":11.5167,"
     "\"alt\":520,\"altMSL\":520,\"altHAE\":558.8,\"geoidSep\":38.8,\"speed\":0,\"track\":233.4,"
     "\"magtrack\":230.4}"},
    {"T10:00:01",
     "\"mode\":3,\"status\":1,\"time\":\"2024-05-14T10:00:01.000Z\",\"lat\":48.117298333,"
     "\"lon\":11.516696667,\"alt\":520,\"altMSL\":520,\"altHAE\":558.8,\"geoidSep\":38.8,"
     "\"speed\":0.499,\"track\":233.3,\"magtrack\":230.3}"},
    {"T10:00:02", "\"mode\":1,\"time\":\"2024-05-14T10:00:02.000Z\"}"},
};

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST(KavogpsPlay, EachEpochIsReportedOnceAndWhole) {
  TempDir dir;
  dir.Write("walk.nmea", kRecording);
  const ToolRun json = RunInProcess({"play", dir.File("walk.nmea"), "--interval", "5", "--json"});
  ASSERT_EQ(json.code, 0) << json.err;
  size_t next = 0, fixes = 0;
  for (const std::string& line : Lines(json.out)) {
    if (line.rfind("{\"class\":\"SKY\"", 0) == 0) continue;
    const std::string head = "{\"class\":\"TPV\",\"device\":" + cli::JsonString(dir.File("walk.nmea")) + ",";
    ASSERT_EQ(line.rfind(head, 0), 0u) << line;
    while (next < kTpvs.size() && !Contains(line, kTpvs[next].first)) ++next;
    ASSERT_LT(next, kTpvs.size()) << "not a later epoch's TPV: " << line;
    const std::string& want = kTpvs[next].second;
    std::istringstream fields(line.substr(head.size(), line.size() - head.size() - 1));
    for (std::string field; std::getline(fields, field, ',');)
      EXPECT_TRUE(Contains("," + want.substr(0, want.size() - 1) + ",", "," + field + ",")) << field << " in " << line;
    fixes += next++ < 2;
  }
  EXPECT_EQ(next, kTpvs.size()) << "the last epoch, lost fix and all, is reported";
  EXPECT_TRUE(
      Contains(json.out, R"("satellites":[{"PRN":2,"el":49,"az":211,"ss":37,"gnssid":0,"svid":2,"used":true},)"))
      << json.out;
  EXPECT_TRUE(Contains(json.err, "End of recording.\nFixes:      " + std::to_string(fixes) + "\n")) << json.err;

  // People read the same epochs; what the lost fix does not know shows "-".
  const ToolRun lines = RunInProcess({"play", dir.File("walk.nmea"), "--interval=5"});
  ASSERT_EQ(lines.code, 0) << lines.err;
  EXPECT_TRUE(Contains(lines.out,
                       "2024-05-14T10:00:02.000Z  -  no fix  0 used, 3 in view  HDOP -  VDOP -  PDOP -  "
                       "[receiving NMEA]\nEnd of recording.\n"))
      << lines.out;

  // The sentences themselves, as sent.
  const ToolRun nmea = RunInProcess({"play", dir.File("walk.nmea"), "--interval", "5", "--nmea"});
  ASSERT_EQ(nmea.code, 0) << nmea.err;
  EXPECT_EQ(nmea.out, std::regex_replace(kRecording, std::regex("\r"), ""));
}

// Two epochs with a fix from `talker`; `damage` spoils every checksum.
std::string Recording(const std::string& talker, bool damage) {
  std::string text;
  for (const char* body : {"GGA,100000,4807,N,01131,E,1,10,1,520,M,,M,,", "RMC,100000,A,4807,N,01131,E,,,140524,,,A",
                           "GGA,100001,4807,N,01131,E,1,10,1,520,M,,M,,", "RMC,100001,A,4807,N,01131,E,,,140524,,,A"}) {
    std::string sentence = sim::Sentence(talker + body);
    if (damage) sentence.back() = sentence.back() == '0' ? '1' : '0';  // a wrong checksum
    text += sentence + "\r\n";
  }
  return text;
}

TEST(KavogpsReceiverOptions, ReachTheLibraryWhichSaysWhatItDoesNotRead) {
  TempDir dir;
  dir.Write("gn.nmea", Recording("GN", false));
  dir.Write("bad.nmea", Recording("GP", true));
  struct Case {
    cli::Arguments options;
    std::string file, settings, error;
  };  // no error: a fix is read
  const std::string all = "GP,GN,GL,GA,GB,BD,GQ,QZ ";
  const std::vector<Case> cases = {
      {{}, "gn.nmea", all + "verify", ""},
      {{"--talkers", " gl , gp", "--checksums", "Require"},
       "gn.nmea",
       "GL,GP require",
       "only sentences of the talker GN came, which are not read (reading GL,GP); read them with --talkers GL,GP,GN\n"},
      {{}, "bad.nmea", all + "verify", "recognises\n"},
      {{"--checksums", "ignore"}, "bad.nmea", all + "ignore", ""},
  };
  for (const Case& c : cases) {
    cli::Arguments args = {"play", dir.File(c.file), "--interval", "5"};
    args.insert(args.end(), c.options.begin(), c.options.end());
    const ToolRun run = RunInProcess(args);
    EXPECT_EQ(std::string(std::getenv("KAVOGPS_TALKERS")) + " " + std::getenv("KAVOGPS_CHECKSUMS"), c.settings);
    if (c.error.empty())
      EXPECT_TRUE(run.code == 0 && Contains(run.out, " N 11.516667")) << run.out << run.err;
    else
      EXPECT_TRUE(run.code == cli::kExitFile && Contains(run.err, c.error)) << run.err;
  }
}

TEST(KavogpsTool, EachFailureHasItsMessageAndCodeAndLeavesNoFile) {
  TempDir dir;
  const std::string gpx = dir.File("track.gpx");
  struct Case {
    cli::Arguments args;
    int code;
    std::string message;
  };
  dir.Write("notes.txt", "shopping list\r\nmilk\r\nbread\r\n");
  dir.Write("empty.nmea", "");
  dir.Write("walk.nmea", kRecording);
  std::filesystem::create_directory(dir.File("folder"));
  const std::vector<Case> cases = {
      {{"play", dir.File("absent.nmea"), "--gpx", gpx}, cli::kExitFile, "absent.nmea': no such file"},
      {{"play", dir.File("folder"), "--gpx", gpx}, cli::kExitFile, "it is a folder"},
      {{"play", dir.File("walk.nmea"), "--gpx", dir.File("no/such/track.gpx")}, cli::kExitFile, "cannot create"},
      {{"play", dir.File("notes.txt"), "--gpx", gpx}, cli::kExitFile, "holds no NMEA sentence"},
      {{"play", dir.File("empty.nmea"), "--gpx", gpx}, cli::kExitFile, "holds no NMEA sentence\n"},
      {{"serve", dir.File("notes.txt"), "--listen", "127.0.0.1:0"}, cli::kExitFile, "holds no NMEA sentence\n"},
      {{"simulate", "--output", dir.File("no/such.nmea")}, cli::kExitFile, "cannot create"},
      {{"play", "--json", "--nmea"}, cli::kExitUsage, "choose one"},
      {{"monitor"}, cli::kExitUsage, "name the port"},
      {{"monitor", "COM3", "--baud", "300"}, cli::kExitUsage, "invalid value '300' for --baud: expected 110, 1200"},
      {{"monitor", "COM3", "--nmea", "--json"}, cli::kExitUsage, "choose one"},
      {{"monitor", "/dev/serial/by-id/usb-none-if00", "--gpx", gpx}, cli::kExitUsage, "too long, even as the device"},
      {{"serve", "--port", "/dev/serial/by-id/usb-none-if00"}, cli::kExitUsage, "too long, even as the device"},
      {{"find", "--all"}, cli::kExitUsage, "unknown option '--all'"},
      {{"play", "--talkers", "G"}, cli::kExitUsage, "invalid value 'G'"},
      {{"monitor", "COM3", "--talkers", "GP,"}, cli::kExitUsage, "invalid value 'GP,'"},
      {{"find", "--checksums", "maybe"}, cli::kExitUsage, "invalid value 'maybe'"},
      {{"serve", "--talkers", "GP,G1"}, cli::kExitUsage, "invalid value 'GP,G1'"},
      {{"serve", "--port", "COM3", "--find", "--port", "COM3"}, cli::kExitUsage, "'COM3' is named twice"},
      {{"serve", "--port", "COM3", "--interval", "5"}, cli::kExitUsage, "--interval and --repeat are for playing"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args.back());
    const ToolRun run = RunInProcess(c.args);
    EXPECT_EQ(run.code, c.code);
    EXPECT_TRUE(Contains(run.err, "kavogps " + c.args[0] + ": ") && Contains(run.err, c.message)) << run.err;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.Path()), {}), 4) << "a file was left";
  }
  // An output that cannot open stops serve before it says it listens
  // (where Unix sockets are; elsewhere the option itself is refused).
  if (!serve::NmeaSocketSupported()) return;
  const std::string socket = dir.File("no/such.sock");
  const ToolRun refused = RunInProcess({"serve", "--nmea-socket", socket, "--listen", "127.0.0.1:0"});
  EXPECT_EQ(refused.code, cli::kExitFailure);
  EXPECT_TRUE(Contains(refused.err, "cannot listen on " + socket) && !Contains(refused.err, "listening on"))
      << refused.err;
}

}  // namespace
}  // namespace kavo::test
