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
// A recording's bytes as the library's reader decodes them, as Latin-1
// ("?" for a character beyond it).
std::string ReadBack(const std::string& bytes);

}  // namespace kavo::test
