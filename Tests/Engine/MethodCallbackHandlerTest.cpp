#include "MethodCallbackHandler.h"

#include <gtest/gtest.h>

#include "IOEngine.h"

namespace
{

class COwner
{
public:
    virtual ~COwner() = default;
    virtual void Call(void* pParam)
    {
        m_pParam = pParam;
        ++m_nCalls;
    }

    void* m_pParam = nullptr;
    int m_nCalls = 0;
};

class CDerivedOwner final : public COwner
{
public:
    void Call(void* /*pParam*/) override
    {
        ++m_nDerivedCalls;
    }

    int m_nDerivedCalls = 0;
};

typedef CMethodCallbackHandler<COwner, CDeferredHandler> CDeferredCall;
typedef CMethodCallbackHandler<COwner, CTimerHandler> CTimerCall;

TEST(MethodCallbackHandler, CallsTheMethodWithItsParameter)
{
    COwner owner;
    int nParam = 0;
    CDeferredCall call(&owner, &COwner::Call, &nParam);
    call.Process();
    EXPECT_EQ(owner.m_nCalls, 1);
    EXPECT_EQ(owner.m_pParam, &nParam);
}

TEST(MethodCallbackHandler, CallsAVirtualMethodOfTheDerivedOwner)
{
    CDerivedOwner owner;
    CTimerCall call(&owner, &COwner::Call);
    call.Process();
    EXPECT_EQ(owner.m_nDerivedCalls, 1);
    EXPECT_EQ(owner.m_nCalls, 0);
}

TEST(MethodCallbackHandler, WithoutAnObjectOrAMethodDoesNothing)
{
    COwner owner;
    CDeferredCall(nullptr, &COwner::Call).Process();
    CDeferredCall(&owner, nullptr).Process();
    EXPECT_EQ(owner.m_nCalls, 0);
}

}  // namespace
