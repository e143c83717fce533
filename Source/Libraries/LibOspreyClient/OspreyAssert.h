#ifndef OSPREY_OSPREYASSERT_H
#define OSPREY_OSPREYASSERT_H

// Internal header.
//
// A guard on an invariant, active in every build type: prints the condition as it is written, with
// its file and function, to standard error and aborts. assert() would vanish from release builds.
#define OSPREY_ASSERT(condition)        \
    ((condition) ? static_cast<void>(0) \
                 : OspreyAssertFailed(#condition, __FILE__, __LINE__, __PRETTY_FUNCTION__))

[[noreturn]] void OspreyAssertFailed(const char* pszCondition, const char* pszFile, int nLine,
                                     const char* pszFunction);

#endif
