#ifndef OSPREY_TESTS_THISTEST_H
#define OSPREY_TESTS_THISTEST_H

#include <string>

// The argument with which a process of the same program runs the test that runs now, and it alone,
// also when this process is one of a batch, which would share it out.
std::string FilterOfThisTest();

#endif
