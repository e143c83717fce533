#ifndef OSPREY_METHODCALLBACKHANDLER_H
#define OSPREY_METHODCALLBACKHANDLER_H

// Internal header.

// A deferred or timer handler (Base is CDeferredHandler or CTimerHandler) whose Process() calls a
// member function of its owner.
//
// Ownership: usually a member of the object that it calls; borrows it.
template <class T, class Base>
class CMethodCallbackHandler final : public Base
{
public:
    typedef void (T::*CMethod)(void*);

    CMethodCallbackHandler(T* pObject, CMethod pfnMethod, void* pParam = nullptr)
        : m_pObject(pObject), m_pfnMethod(pfnMethod), m_pParam(pParam)
    {
    }

    // Does nothing without an object or a method.
    void Process() override
    {
        if (m_pObject != nullptr && m_pfnMethod != nullptr)
        {
            (m_pObject->*m_pfnMethod)(m_pParam);
        }
    }

private:
    T* m_pObject;
    CMethod m_pfnMethod;
    void* m_pParam;
};

#endif
