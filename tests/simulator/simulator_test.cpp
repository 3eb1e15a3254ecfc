// The simulated receiver's output: well-formed, deterministic, and true to
// the track and sky it reports having used.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <set>
#include <stdexcept>

#include "nmea_check.h"
#include "simulator/simulator.h"

namespace kavo::sim {
namespace {

using test::Fields;
using test::SentenceProblem;

std::vector<Epoch> Simulate(const SimulatorOptions& options, int count) {
  Simulator simulator(options);
  std::vector<Epoch> epochs;
  for (int i = 0; i < count; ++i) epochs.push_back(simulator.Next());
  return epochs;
}

SimulatorOptions With(Mode mode, bool extras, double rate = 1.0) {
  SimulatorOptions o;
  o.mode = mode;
  o.rateHz = rate;
  o.otherTalkers = o.proprietary = o.fixLoss = extras;
  return o;
}

// The lines of an epoch whose id is `id` ("GPGGA").
std::vector<std::vector<std::string>> Sentences(const Epoch& e, const std::string& id) {
  std::vector<std::vector<std::string>> found;
  for (const Line& line : e.lines) {
    const auto fields = Fields(line.text);
    if (!fields.empty() && fields[0] == id) found.push_back(fields);
  }
  return found;
}

TEST(Simulator, EverySentenceIsWellFormedAndEachEpochHasTheFiveTypes) {
  for (const SimulatorOptions& options :
       {With(Mode::kWalk, false), With(Mode::kDrive, true), With(Mode::kDrive, true, 5.0)}) {
    for (const Epoch& e : Simulate(options, 400)) {
      for (const Line& line : e.lines) {
        EXPECT_EQ(SentenceProblem(line.text), "") << line.text;
        EXPECT_EQ(line.damage, Damage::kNone);
      }
      for (const char* id : {"GPGGA", "GPGSA", "GPRMC", "GPVTG"})
        EXPECT_EQ(Sentences(e, id).size(), 1u) << id << " in epoch " << e.index;
      EXPECT_EQ(Sentences(e, "GPGSV").empty(), !e.satellitesReported);
    }
  }
}

TEST(Simulator, SameSeedGivesSameBytesAndOptionsLeaveTheTrackAlone) {
  auto text = [](const SimulatorOptions& o) {
    std::string all;
    for (const Epoch& e : Simulate(o, 300)) all += e.Text();
    return all;
  };
  SimulatorOptions base = With(Mode::kDrive, false);
  base.seed = 42;
  EXPECT_EQ(text(base), text(base));
  SimulatorOptions other = base;
  other.seed = 43;
  EXPECT_NE(text(base), text(other));

  // Extra sentences and damage draw from streams of their own: the track
  // and the GPS sky stay exactly as they were.
  SimulatorOptions decorated = base;
  decorated.otherTalkers = decorated.proprietary = true;
  decorated.damage = 0.3;
  const auto plain = Simulate(base, 300), rich = Simulate(decorated, 300);
  for (size_t i = 0; i < plain.size(); ++i) {
    ASSERT_EQ(plain[i].truth.position.latitude, rich[i].truth.position.latitude);
    ASSERT_EQ(plain[i].truth.position.longitude, rich[i].truth.position.longitude);
    ASSERT_EQ(plain[i].truth.speed, rich[i].truth.speed);
    ASSERT_EQ(plain[i].usedCount, rich[i].usedCount);
    ASSERT_EQ(plain[i].pdop, rich[i].pdop);
  }
}

TEST(Simulator, SentencesReportTheTrackPointsAndTime) {
  SimulatorOptions o = With(Mode::kDrive, false);
  o.start = {-33.8688, -151.2093, 40.0};  // south and west: S and W
  o.startTime = {2024, 12, 31, 23, 59, 30, 0};  // the date rolls over mid-run
  const auto epochs = Simulate(o, 60);
  for (const Epoch& e : epochs) {
    ASSERT_TRUE(e.fix);
    const auto gga = Sentences(e, "GPGGA").at(0);
    const auto rmc = Sentences(e, "GPRMC").at(0);
    const auto vtg = Sentences(e, "GPVTG").at(0);
    const double lat = test::Coordinate(gga[2], gga[3]), lon = test::Coordinate(gga[4], gga[5]);
    EXPECT_EQ(gga[3], "S");
    EXPECT_EQ(gga[5], "W");
    EXPECT_NEAR(lat, e.truth.position.latitude, 1e-6);
    EXPECT_NEAR(lon, e.truth.position.longitude, 1e-6);
    EXPECT_EQ(test::Coordinate(rmc[3], rmc[4]), lat);
    EXPECT_EQ(test::Coordinate(rmc[5], rmc[6]), lon);
    EXPECT_NEAR(std::stod(gga[9]), e.truth.position.altitude, 0.051);
    EXPECT_EQ(gga[6], "1");
    EXPECT_EQ(std::stoi(gga[7]), e.usedCount);
    EXPECT_EQ(rmc[2], "A");
    EXPECT_NEAR(std::stod(rmc[7]) * 1852.0 / 3600.0, e.truth.speed, 0.003);
    EXPECT_NEAR(std::stod(vtg[7]) / 3.6, e.truth.speed, 0.003);
    EXPECT_NEAR(test::AngleDifference(std::stod(rmc[8]), e.truth.course), 0.0, 0.051);
    EXPECT_EQ(vtg[1], rmc[8]);

    const int64_t second = 23 * 3600 + 59 * 60 + 30 + static_cast<int64_t>(e.index);
    const int64_t ofDay = second % 86400;
    char expected[16];
    std::snprintf(expected, sizeof expected, "%02d%02d%02d.00", static_cast<int>(ofDay / 3600),
                  static_cast<int>(ofDay / 60 % 60), static_cast<int>(ofDay % 60));
    EXPECT_EQ(gga[1], expected);
    EXPECT_EQ(rmc[9], second < 86400 ? "311224" : "010125");
  }
}

TEST(Simulator, MovementIsPlausibleForWalkingAndDriving) {
  for (Mode mode : {Mode::kWalk, Mode::kDrive}) {
    const double top = mode == Mode::kWalk ? 2.0 : 25.0;
    // Five epochs a second, so that a change of plan within an interval
    // cannot hide behind the mean of its two ends.
    const auto epochs = Simulate(With(mode, false, 5.0), 4500);
    double travelled = 0;
    for (size_t i = 1; i < epochs.size(); ++i) {
      const TrackPoint &a = epochs[i - 1].truth, &b = epochs[i].truth;
      const double d = test::DistanceMetres(a.position.latitude, a.position.longitude,
                                            b.position.latitude, b.position.longitude);
      travelled += d;
      EXPECT_LE(b.speed, top);
      EXPECT_LE(std::fabs(b.speed - a.speed), 0.2 * 3.5) << "acceleration at " << i;
      EXPECT_LE(std::fabs(b.position.altitude - a.position.altitude), 0.2);
      // The distance covered is the mean speed times the interval.
      const double mean = 0.5 * (a.speed + b.speed) * 0.2;
      EXPECT_NEAR(d, mean, 0.01 * mean + 0.002) << "epoch " << i;
      if (a.speed > 2.0) {
        const double bearing = test::BearingDegrees(a.position.latitude, a.position.longitude,
                                                    b.position.latitude, b.position.longitude);
        EXPECT_LT(test::AngleDifference(bearing, a.course), test::AngleDifference(a.course, b.course) + 0.5)
            << "epoch " << i;
      }
    }
    // Fifteen minutes of walking cover about a kilometre, of driving ten.
    EXPECT_GT(travelled, mode == Mode::kWalk ? 600.0 : 5000.0);
    EXPECT_LT(travelled, mode == Mode::kWalk ? 1800.0 : 20000.0);
  }
}

TEST(Simulator, SatelliteSkyIsConsistentWithTheSentences) {
  const auto epochs = Simulate(With(Mode::kWalk, false), 1200);
  std::map<int, const SatelliteView*> previous;
  double highSnr = 0, lowSnr = 0;
  int high = 0, low = 0, untracked = 0;
  std::map<int, int> firstElevation;
  int largestMove = 0;
  for (const Epoch& e : epochs) {
    std::map<int, const SatelliteView*> current;
    int used = 0;
    for (const SatelliteView& s : e.satellites) {
      ASSERT_GE(s.elevation, 0);
      ASSERT_LE(s.elevation, 90);
      ASSERT_GE(s.azimuth, 0);
      ASSERT_LT(s.azimuth, 360);
      ASSERT_TRUE(s.prn >= 1 && s.prn <= 32);
      if (s.elevation < 5) {
        EXPECT_EQ(s.snr, -1) << "tracked below the mask";
      }
      if (s.used) {
        ++used;
        EXPECT_GE(s.elevation, 10);
        EXPECT_GE(s.snr, 0);
      }
      if (s.snr < 0) ++untracked;
      if (s.snr >= 0 && s.elevation >= 50) highSnr += s.snr, ++high;
      if (s.snr >= 0 && s.elevation < 25) lowSnr += s.snr, ++low;
      current[s.prn] = &s;
      firstElevation.emplace(s.prn, s.elevation);
      largestMove = std::max(largestMove, std::abs(s.elevation - firstElevation[s.prn]));
      // Satellites cross the sky slowly: a degree or so per second at most.
      const auto before = previous.find(s.prn);
      if (before != previous.end()) {
        EXPECT_LE(std::abs(s.elevation - before->second->elevation), 1);
        if (s.elevation < 80) {
          EXPECT_LE(test::AngleDifference(s.azimuth, before->second->azimuth), 2.0);
        }
      }
    }
    previous = current;
    EXPECT_EQ(used, e.usedCount);
    EXPECT_EQ(e.fix, used >= 4);

    // GSV lists exactly these satellites, four to a message.
    std::vector<std::string> listed;
    const auto gsv = Sentences(e, "GPGSV");
    for (size_t m = 0; m < gsv.size(); ++m) {
      EXPECT_EQ(std::stoul(gsv[m][1]), gsv.size());
      EXPECT_EQ(std::stoul(gsv[m][2]), m + 1);
      EXPECT_EQ(std::stoul(gsv[m][3]), e.satellites.size());
      for (size_t f = 4; f + 3 < gsv[m].size(); f += 4)
        listed.push_back(gsv[m][f] + "/" + gsv[m][f + 1] + "/" + gsv[m][f + 2] + "/" + gsv[m][f + 3]);
    }
    ASSERT_EQ(listed.size(), e.satellites.size());
    std::vector<test::Look> looks;
    std::set<int> gsaPrns;
    const auto gsa = Sentences(e, "GPGSA").at(0);
    for (int f = 3; f <= 14; ++f)
      if (!gsa[f].empty()) gsaPrns.insert(std::stoi(gsa[f]));
    for (size_t i = 0; i < listed.size(); ++i) {
      const SatelliteView& s = e.satellites[i];
      char text[32];
      std::snprintf(text, sizeof text, "%02d/%02d/%03d/", s.prn, s.elevation, s.azimuth);
      EXPECT_EQ(listed[i], text + (s.snr >= 0 ? std::to_string(s.snr) : ""));
      EXPECT_EQ(gsaPrns.count(s.prn) == 1, s.used);
      if (s.used) looks.push_back({double(s.elevation), double(s.azimuth)});
    }

    // The dilution follows from the geometry of the satellites used.
    if (!e.fix) continue;
    double pdop = 0, hdop = 0, vdop = 0;
    ASSERT_TRUE(test::Dilution(looks, &pdop, &hdop, &vdop));
    EXPECT_NEAR(std::stod(gsa[15]), pdop, 0.06 + 0.02 * pdop) << "epoch " << e.index;
    EXPECT_NEAR(std::stod(gsa[16]), hdop, 0.06 + 0.02 * hdop);
    EXPECT_NEAR(std::stod(gsa[17]), vdop, 0.06 + 0.02 * vdop);
    EXPECT_EQ(Sentences(e, "GPGGA").at(0)[8], gsa[16]);
  }
  // Signals are stronger high in the sky; some satellites in view are not
  // tracked; in twenty minutes the sky has visibly moved.
  ASSERT_GT(high, 0);
  ASSERT_GT(low, 0);
  EXPECT_GT(highSnr / high, lowSnr / low + 8.0);
  EXPECT_GT(untracked, 0);
  EXPECT_GE(largestMove, 3);
}

TEST(Simulator, FixLossReportsNoFixAndRecovers) {
  const auto epochs = Simulate(With(Mode::kDrive, true), 600);
  int lost = 0, recovered = 0;
  for (size_t i = 0; i < epochs.size(); ++i) {
    const Epoch& e = epochs[i];
    const auto gga = Sentences(e, "GPGGA").at(0);
    const auto rmc = Sentences(e, "GPRMC").at(0);
    EXPECT_EQ(gga[6], e.fix ? "1" : "0");
    EXPECT_EQ(rmc[2], e.fix ? "A" : "V");
    EXPECT_EQ(Sentences(e, "GPGSA").at(0)[2], e.fix ? "3" : "1");
    EXPECT_EQ(rmc[9], "140524") << "the date stays known without a fix";
    if (!e.fix) {
      ++lost;
      EXPECT_EQ(gga[2], "");
      EXPECT_LT(e.usedCount, 4);
    }
    if (i > 0 && e.fix && !epochs[i - 1].fix) ++recovered;
  }
  EXPECT_GE(lost, 8);
  EXPECT_GE(recovered, 1);
}

TEST(Simulator, FasterRatesStampFractionsAndListSatellitesOncePerSecond) {
  const auto epochs = Simulate(With(Mode::kWalk, false, 5.0), 25);
  int cycles = 0;
  for (const Epoch& e : epochs) {
    const std::string time = Sentences(e, "GPRMC").at(0)[1];
    EXPECT_EQ(time.substr(7), std::to_string(e.index % 5 * 2) + "0");
    EXPECT_EQ(e.elapsedMs, e.index * 200);
    cycles += e.satellitesReported;
  }
  EXPECT_EQ(cycles, 5);
}

TEST(Simulator, OtherTalkersAndProprietarySentencesComeBesideTheGpsOnes) {
  SimulatorOptions o = With(Mode::kWalk, false);
  o.otherTalkers = o.proprietary = true;
  const auto epochs = Simulate(o, 30);
  EXPECT_EQ(Fields(epochs[0].lines[0].text)[0], "PSRFTXT");
  for (const Epoch& e : epochs) {
    for (const char* id : {"GNGGA", "GNGSA", "PGRME", "PGRMZ"}) EXPECT_EQ(Sentences(e, id).size(), 1u) << id;
    EXPECT_EQ(Sentences(e, "PSRFTXT").size(), e.index == 0 ? 1u : 0u);
    const auto glgsv = Sentences(e, "GLGSV");
    ASSERT_FALSE(glgsv.empty());
    for (const auto& fields : glgsv)
      for (size_t f = 4; f < fields.size(); f += 4) {
        EXPECT_GE(std::stoi(fields[f]), 65);
        EXPECT_LE(std::stoi(fields[f]), 88);
      }
    // The combined fix counts both systems' satellites.
    int used = 0;
    for (const SatelliteView& s : e.satellites) used += s.used;
    EXPECT_EQ(std::stoi(Sentences(e, "GNGGA").at(0)[7]), used);
  }
}

TEST(Simulator, DamageHitsTheRequestedShareOfLinesAndNothingElse) {
  SimulatorOptions clean = With(Mode::kDrive, false);
  SimulatorOptions noisy = clean;
  noisy.damage = 0.1;
  const auto a = Simulate(clean, 500), b = Simulate(noisy, 500);
  size_t lines = 0, damaged = 0;
  std::set<Damage> kinds;
  for (size_t i = 0; i < a.size(); ++i) {
    ASSERT_EQ(a[i].lines.size(), b[i].lines.size());
    for (size_t l = 0; l < a[i].lines.size(); ++l) {
      const Line& line = b[i].lines[l];
      ++lines;
      EXPECT_EQ(line.text.find_first_of("\r\n"), std::string::npos);
      if (line.damage == Damage::kNone) {
        EXPECT_EQ(line.text, a[i].lines[l].text);
      } else {
        ++damaged;
        kinds.insert(line.damage);
        EXPECT_NE(SentenceProblem(line.text), "") << line.text;
      }
    }
  }
  EXPECT_NEAR(static_cast<double>(damaged) / lines, 0.1, 0.02);
  EXPECT_EQ(kinds.size(), 3u);

  noisy.damage = 1.0;
  for (const Epoch& e : Simulate(noisy, 20))
    for (const Line& line : e.lines) EXPECT_NE(SentenceProblem(line.text), "") << line.text;
}

TEST(Simulator, RejectsUnusableOptions) {
  auto rejects = [](void (*change)(SimulatorOptions&)) {
    SimulatorOptions o;
    change(o);
    EXPECT_NE(ValidateOptions(o), "");
    EXPECT_THROW(Simulator{o}, std::invalid_argument);
  };
  rejects([](SimulatorOptions& o) { o.rateHz = 0; });
  rejects([](SimulatorOptions& o) { o.rateHz = 51; });
  rejects([](SimulatorOptions& o) { o.damage = -0.01; });
  rejects([](SimulatorOptions& o) { o.damage = 1.5; });
  rejects([](SimulatorOptions& o) { o.start.latitude = 89.0; });
  rejects([](SimulatorOptions& o) { o.start.longitude = 180.0; });
  rejects([](SimulatorOptions& o) { o.startTime = {2023, 2, 29, 12, 0, 0, 0}; });
  EXPECT_EQ(ValidateOptions(SimulatorOptions{}), "");
}

}  // namespace
}  // namespace kavo::sim
