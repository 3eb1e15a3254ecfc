// Test-side reading of NMEA text, written apart from the simulator's own
// formatting so that the two check each other.
#pragma once

#include <string>
#include <vector>

namespace kavo::test {

// Empty when `line` is a well-formed sentence: "$", printable ASCII, one
// "*" followed by exactly two hex digits that match the XOR of the body.
std::string SentenceProblem(const std::string& line);
// The comma-separated fields of a sentence's body, the id first ("GPGGA").
std::vector<std::string> Fields(const std::string& line);
// "4807.0380" + "N" -> 48.1173; "S" and "W" negative.
double Coordinate(const std::string& value, const std::string& hemisphere);
// Great-circle distance in metres on a sphere of mean Earth radius.
double DistanceMetres(double lat1, double lon1, double lat2, double lon2);
// Initial bearing from point 1 to point 2, degrees [0, 360).
double BearingDegrees(double lat1, double lon1, double lat2, double lon2);
// Smallest difference of two angles in degrees, [0, 180].
double AngleDifference(double a, double b);

struct Look {
  double elevation, azimuth;  // degrees
};
// PDOP, HDOP and VDOP of a set of line-of-sight angles; false for fewer than
// four or a degenerate set.
bool Dilution(const std::vector<Look>& looks, double* pdop, double* hdop, double* vdop);

// The text of a recording: checks and strips the byte-order mark of the
// named encoding, decodes to code points (Latin-1 range expected).
bool DecodeRecording(const std::string& bytes, const std::string& encoding, std::u32string* text,
                     std::string* problem);

}  // namespace kavo::test
