// Stands in for the buffered files of the library, as LibraryCalls.cpp does for system calls. A
// failed read or write moves one byte before it fails and marks the file as the C library does.

#include <cerrno>
#include <cstdio>

#include "FaultPlan.h"

namespace
{

const int ERROR_SEEN = 0x20;  // of FILE::_flags: what ferror looks at

size_t FailAfter(size_t nMoved, FILE* pFile, const CFault& fault)
{
    pFile->_flags |= ERROR_SEEN;
    errno = fault.nError;
    return nMoved;
}

}  // namespace

extern "C"
{
    int __real_fclose(FILE* pFile);
    FILE* __real_fopen64(const char* pszPath, const char* pszMode);
    size_t __real_fread(void* pData, size_t nSize, size_t nCount, FILE* pFile);
    int __real_fseeko64(FILE* pFile, off_t llOffset, int nFrom);
    size_t __real_fwrite(const void* pData, size_t nSize, size_t nCount, FILE* pFile);

    // The file is gone also when closing it reports an error.
    int __wrap_fclose(FILE* pFile)
    {
        const CFault* pFault = MeetFault(CALL_FCLOSE);
        const int nResult = __real_fclose(pFile);
        if (pFault != nullptr)
        {
            errno = pFault->nError;
            return EOF;
        }
        return nResult;
    }

    FILE* __wrap_fopen64(const char* pszPath, const char* pszMode)
    {
        if (const CFault* pFault = MeetFault(CALL_FOPEN))
        {
            errno = pFault->nError;
            return nullptr;
        }
        return __real_fopen64(pszPath, pszMode);
    }

    size_t __wrap_fread(void* pData, size_t nSize, size_t nCount, FILE* pFile)
    {
        if (const CFault* pFault = MeetFault(CALL_FREAD))
        {
            return FailAfter(__real_fread(pData, nSize, 1, pFile), pFile, *pFault);
        }
        return __real_fread(pData, nSize, nCount, pFile);
    }

    int __wrap_fseeko64(FILE* pFile, off_t llOffset, int nFrom)
    {
        if (const CFault* pFault = MeetFault(CALL_FSEEK))
        {
            errno = pFault->nError;
            return -1;
        }
        return __real_fseeko64(pFile, llOffset, nFrom);
    }

    size_t __wrap_fwrite(const void* pData, size_t nSize, size_t nCount, FILE* pFile)
    {
        const CFault* pFault = nCount > 0 ? MeetFault(CALL_FWRITE) : nullptr;
        if (pFault != nullptr)
        {
            const size_t nMoved = nCount > 1 ? __real_fwrite(pData, nSize, 1, pFile) : 0;
            return FailAfter(nMoved, pFile, *pFault);
        }
        return __real_fwrite(pData, nSize, nCount, pFile);
    }
}
