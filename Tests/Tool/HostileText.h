#ifndef OSPREY_TESTS_HOSTILETEXT_H
#define OSPREY_TESTS_HOSTILETEXT_H

#include <random>
#include <string>

// Names of 1 to 255 bytes that no well-meaning peer gives: control characters, escape sequences of
// terminals, quotes, line ends of every kind, direction marks, and bytes that are no UTF-8. The
// same ones in every run.
class CHostileText
{
public:
    std::string Next();

    // The same without a byte that no file system takes: "/" and NUL.
    std::string NextFileName();

private:
    size_t Below(size_t nEnd)
    {
        return m_random() % nEnd;
    }
    std::string Piece();

    std::mt19937 m_random{20260};
};

// It is one line that a terminal shows as it stands: UTF-8 without control characters, line ends or
// direction marks.
bool IsHarmlessLine(const std::string& strLine);

#endif
