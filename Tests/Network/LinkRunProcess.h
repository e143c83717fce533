#ifndef OSPREY_TESTS_LINKRUNPROCESS_H
#define OSPREY_TESTS_LINKRUNPROCESS_H

#include <string>
#include <vector>

// How a program ended, and what it printed.
struct CLinkRunResult
{
    int m_nExitCode = -1;  // -1: it was killed, or had to be
    std::string m_strOutput;
};

// Runs LinkRun; it has a deadline and is killed at it.
CLinkRunResult RunLink(const std::vector<std::string>& words);

// The run must violate nothing; the test is skipped where the machine refuses networks of one's
// own.
#define EXPECT_LINK_RUN(...)                                    \
    do                                                          \
    {                                                           \
        const CLinkRunResult result = RunLink({__VA_ARGS__});   \
        if (result.m_nExitCode == 77)                           \
        {                                                       \
            GTEST_SKIP() << result.m_strOutput;                 \
        }                                                       \
        EXPECT_EQ(result.m_nExitCode, 0) << result.m_strOutput; \
    } while (false)

#endif
