#include "OutputQueue.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <sstream>

#include "Descriptor.h"
#include "Output.h"

namespace
{

// An output of the tool that goes into a pipe, which is read only when the test wants it.
class COutputQueueTest : public ::testing::Test
{
protected:
    COutputQueueTest()
    {
        int nEnds[2] = {-1, -1};
        EXPECT_EQ(pipe2(nEnds, O_CLOEXEC), 0);
        m_read = CDescriptor(nEnds[0]);
        const CDescriptor write(nEnds[1]);
        fflush(stdout);
        const CDescriptor before(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
        dup2(write.Get(), STDOUT_FILENO);
        m_pOutput->TakeStandardOutput();
        dup2(before.Get(), STDOUT_FILENO);
    }

    // What is there, or comes until the output has ended.
    std::string Read(bool bToEnd)
    {
        std::string strText;
        char szBytes[4096];
        pollfd polled{m_read.Get(), POLLIN, 0};
        while (poll(&polled, 1, bToEnd ? -1 : 0) > 0)
        {
            const ssize_t n = read(m_read.Get(), szBytes, sizeof szBytes);
            if (n <= 0)
            {
                break;
            }
            strText.append(szBytes, static_cast<size_t>(n));
        }
        return strText;
    }

    static std::vector<std::string> Split(const std::string& strText)
    {
        std::istringstream text(strText);
        std::vector<std::string> listLines;
        for (std::string strLine; std::getline(text, strLine);)
        {
            listLines.push_back(strLine);
        }
        return listLines;
    }

    static std::string Gap(Orb_U64 ullLines)
    {
        return "missing: " + std::to_string(ullLines);
    }

    // What is said goes through the queue while it lives.
    class CQueued
    {
    public:
        explicit CQueued(COutput& output) : m_output(output)
        {
            m_output.BeginQueue(Gap);
        }
        ~CQueued()
        {
            m_output.EndQueue();
        }
        CQueued(const CQueued&) = delete;
        CQueued& operator=(const CQueued&) = delete;

    private:
        COutput& m_output;
    };

    CDescriptor m_read;
    std::unique_ptr<COutput> m_pOutput = std::make_unique<COutput>();
};

using OutputQueue = COutputQueueTest;

// Number NUMBER of lines of a thousand bytes.
std::string Numbered(size_t nNumber)
{
    const std::string strNumber = std::to_string(nNumber);
    return strNumber + std::string(999 - strNumber.size(), '.');
}

}  // namespace

TEST_F(OutputQueue, KeepsTheOrderAndWritesAllBeforeItEnds)
{
    {
        const CQueued queued(*m_pOutput);
        for (size_t i = 0; i < 50; ++i)
        {
            m_pOutput->Line(Numbered(i));
        }
    }
    m_pOutput->Line("direct");
    m_pOutput.reset();
    const std::vector<std::string> listLines = Split(Read(true));
    ASSERT_EQ(listLines.size(), 51U);
    for (size_t i = 0; i < 50; ++i)
    {
        EXPECT_EQ(listLines[i], Numbered(i));
    }
    EXPECT_EQ(listLines.back(), "direct");
}

TEST_F(OutputQueue, LeavesOutWholeLinesAndTellsHowManyWhereTheyAreMissing)
{
    const size_t nPut = 3000;
    std::string strRead;
    {
        const CQueued queued(*m_pOutput);
        for (size_t i = 0; i < nPut; ++i)
        {
            m_pOutput->Line(Numbered(i));
        }
        // Less than half a mebibyte waits then.
        while (strRead.size() < 900000)
        {
            strRead += Read(false);
        }
        m_pOutput->Line("next");
        m_pOutput->Line("last");
        while (strRead.find("last\n") == std::string::npos)
        {
            strRead += Read(false);
        }
    }
    const std::vector<std::string> listLines = Split(strRead);
    ASSERT_GT(listLines.size(), 3U);
    const size_t nKept = listLines.size() - 3;
    EXPECT_GE(nKept, 1048576U / 1000) << "a mebibyte waits, and what the pipe holds";
    EXPECT_LT(nKept, nPut);
    for (size_t i = 0; i < nKept; ++i)
    {
        ASSERT_EQ(listLines[i], Numbered(i));
    }
    EXPECT_EQ(listLines[nKept], Gap(nPut - nKept));
    EXPECT_EQ(listLines[nKept + 1], "next");
    EXPECT_EQ(listLines[nKept + 2], "last");
}

TEST_F(OutputQueue, WhatIsMissingAtTheEndIsToldAtTheEnd)
{
    const size_t nPut = 3000;
    std::thread reader;
    std::string strRead;
    {
        const CQueued queued(*m_pOutput);
        for (size_t i = 0; i < nPut; ++i)
        {
            m_pOutput->Line(Numbered(i));
        }
        reader = std::thread([&] { strRead = Read(true); });
    }
    m_pOutput.reset();
    reader.join();
    const std::vector<std::string> listLines = Split(strRead);
    ASSERT_GT(listLines.size(), 1U);
    EXPECT_EQ(listLines.back(), Gap(nPut - (listLines.size() - 1)));
}

// As a signal does it: what the reader does not take within half a second is given up.
TEST_F(OutputQueue, EndThatWasAskedForDoesNotWaitForAStalledReader)
{
    const auto begun = std::chrono::steady_clock::now();
    {
        const CQueued queued(*m_pOutput);
        for (size_t i = 0; i < 500; ++i)
        {
            m_pOutput->Line(Numbered(i));
        }
        m_pOutput->LeaveRows();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(10));
    m_pOutput.reset();
    EXPECT_LE(Read(true).size(), 65536U) << "what the pipe holds";
}

// A pipe that is writable has room for a page.
TEST_F(OutputQueue, EndThatWasAskedForDoesNotWaitForALongLineEither)
{
    {
        const CQueued queued(*m_pOutput);
        m_pOutput->Line(std::string(1000000, 'x'));
        m_pOutput->LeaveRows();
    }
    m_pOutput.reset();
    EXPECT_LE(Read(true).size(), 65536U);
}

// Errors have a way of their own.
TEST_F(OutputQueue, ErrorsDoNotWaitForAReaderOfTheOutput)
{
    const CDescriptor before(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3));
    int nEnds[2] = {-1, -1};
    ASSERT_EQ(pipe2(nEnds, O_CLOEXEC), 0);
    const CDescriptor errors(nEnds[0]);
    dup2(nEnds[1], STDERR_FILENO);
    close(nEnds[1]);
    char szError[64] = "";
    {
        const CQueued queued(*m_pOutput);
        for (size_t i = 0; i < 3000; ++i)
        {
            m_pOutput->Line(Numbered(i));
        }
        m_pOutput->Error("heard");
        pollfd polled{errors.Get(), POLLIN, 0};
        EXPECT_EQ(poll(&polled, 1, 10000), 1);
        EXPECT_GT(read(errors.Get(), szError, sizeof szError - 1), 0);
        m_pOutput->LeaveRows();
    }
    dup2(before.Get(), STDERR_FILENO);
    EXPECT_STREQ(szError, "osprey: heard\n");
}
