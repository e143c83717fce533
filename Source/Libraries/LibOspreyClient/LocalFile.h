#ifndef OSPREY_LOCALFILE_H
#define OSPREY_LOCALFILE_H

// Internal header. The files that are read and written on behalf of peers.
//
// All are unbuffered: a block goes to the system whole, so that a full disk shows at the block that
// did not fit. All are close-on-exec, with 64-bit offsets.

#include <cstdio>

// fopen in one of its binary modes. Null, with errno set, when it fails; a FIFO or a socket is
// refused without being opened, since opening it would block until somebody comes to its other end.
FILE* OpenLocalFile(const char* pszPath, const char* pszMode);

// Closes and clears pFile; true when there was none. False when bytes written could not be stored.
bool CloseLocalFile(FILE*& pFile);

// As fread and fwrite of single bytes, but a call that a signal interrupts goes on.
size_t ReadLocalFile(FILE* pFile, void* pData, size_t nSize);
size_t WriteLocalFile(FILE* pFile, const void* pData, size_t nSize);

// Sets the position, in bytes from the start. False beyond 2^63 - 1, or when the system refuses.
bool SeekLocalFile(FILE* pFile, unsigned long long ullOffset);

// Deletes a regular file or a symbolic link; leaves anything else, such as a folder, alone.
void RemoveLocalFile(const char* pszPath);

#endif
