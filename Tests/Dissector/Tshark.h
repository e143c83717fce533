#ifndef OSPREY_TESTS_TSHARK_H
#define OSPREY_TESTS_TSHARK_H

#include <string>
#include <vector>

// A run of the packet analyser over a capture, with the dissector of the repository and without the
// settings and plugins of whoever runs the test. Its errors are part of the output.
std::string RunTshark(const std::string& strCapture, const std::vector<std::string>& listOptions);

bool IsTsharkInstalled();

#endif
