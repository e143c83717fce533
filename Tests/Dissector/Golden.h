#ifndef OSPREY_TESTS_GOLDEN_H
#define OSPREY_TESTS_GOLDEN_H

#include <string>

// Fails the test unless the text is that of the file in Golden/. Where the tests were started with
// --write, writes the file instead.
void ExpectGolden(const char* pszFile, const std::string& strText);

#endif
