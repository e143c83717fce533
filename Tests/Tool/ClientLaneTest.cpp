#include "ClientLane.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>

namespace
{

struct CCounts
{
    int m_nBegun = 0;
    int m_nFailed = 0;
    int m_nCleanedUp = 0;
    int m_nDeleted = 0;
};

class CThrowingTransfer final : public ITransfer
{
public:
    explicit CThrowingTransfer(CCounts& counts) : m_counts(counts) {}
    ~CThrowingTransfer() override
    {
        ++m_counts.m_nDeleted;
    }
    CThrowingTransfer(const CThrowingTransfer&) = delete;
    CThrowingTransfer& operator=(const CThrowingTransfer&) = delete;

    bool IsFolder() const override
    {
        return false;
    }
    bool Begin(std::string&, std::string&, long long&) override
    {
        ++m_counts.m_nBegun;
        throw std::bad_alloc();
    }
    void Move(unsigned int, Orb_U64) override {}
    void Complete(Orb_U64) override {}
    // No more memory than before.
    void Fail(const std::string&, int) override
    {
        ++m_counts.m_nFailed;
        throw std::bad_alloc();
    }
    void CleanUp() override
    {
        ++m_counts.m_nCleanedUp;
    }

private:
    CCounts& m_counts;
};

class CIdleClient final : public IFileClient
{
public:
    bool Start(unsigned short*, unsigned int, unsigned short, unsigned int) override
    {
        return true;
    }
    bool Stop() override
    {
        return true;
    }
    Orb_U64 Announced() override
    {
        return 0;
    }
};

class CThrowingWork final : public CTransferWork
{
public:
    explicit CThrowingWork(CCounts& counts) : CTransferWork(2), m_counts(counts) {}

    size_t FilesLeft() const override
    {
        return 2 - Taken();
    }
    std::string ReasonOf(int) const override
    {
        return std::string();
    }
    std::unique_ptr<IFileClient> MakeClient(IFileClientCallback&) const override
    {
        return std::make_unique<CIdleClient>();
    }

protected:
    std::unique_ptr<ITransfer> MakeTransfer(size_t) const override
    {
        return std::make_unique<CThrowingTransfer>(m_counts);
    }

private:
    CCounts& m_counts;
};

// A lane whose callbacks the test makes.
class CClientLaneTest : public ::testing::Test
{
protected:
    bool GetNextFile()
    {
        std::string strLocal;
        std::string strRemote;
        long long llNumber = 0;
        return m_lane.GetNextFile(strLocal, strRemote, llNumber);
    }

    CCounts m_counts;
    COptions m_options;
    COutput m_output;
    CProgress m_progress{m_output, CProgress::STYLE_QUIET, true};
    CThrowingWork m_work{m_counts};
    CClientLane m_lane{m_options, m_work, m_progress, [] {}, [] {}};
};

using ClientLane = CClientLaneTest;

}  // namespace

TEST_F(ClientLane, FileThatCannotBeginForLackOfMemoryFailsOnceAndEndsTheLane)
{
    EXPECT_FALSE(GetNextFile());
    EXPECT_TRUE(m_lane.IsOver());
    EXPECT_FALSE(m_lane.IsDone());
    EXPECT_EQ(m_counts.m_nFailed, 1);
    EXPECT_EQ(m_counts.m_nCleanedUp, 1);
    EXPECT_EQ(m_counts.m_nDeleted, 1);
    m_lane.FailLost();
    EXPECT_EQ(m_counts.m_nFailed, 1);
}

TEST_F(ClientLane, NoFileIsBegunOnceItWasCleanedUp)
{
    m_lane.CleanUp();
    EXPECT_FALSE(GetNextFile());
    EXPECT_EQ(m_counts.m_nBegun, 0);
    EXPECT_FALSE(m_lane.IsDone());
}
