#include "OspreyAssert.h"

#include <cstdio>
#include <cstdlib>

void OspreyAssertFailed(const char* pszCondition, const char* pszFile, int nLine,
                        const char* pszFunction)
{
    fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", pszFile, nLine, pszFunction,
            pszCondition);
    abort();
}
