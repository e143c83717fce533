#ifndef OSPREY_TOOL_TEMPFILE_H
#define OSPREY_TOOL_TEMPFILE_H

#include <string>

// Files under construction. They stand in the folder of their target, so that a rename completes
// them, under names that nobody can foresee and no peer may use.

// Creates an empty file with a new name in a folder and stores its path. The mode is what a new
// file gets, or nMode when that is not 0. False with errno.
bool CreateTempFile(const std::string& strFolder, unsigned int nMode, std::string& strPath);

// A file name (one component) that is kept for CreateTempFile.
bool IsTempName(const std::string& strName);

// Writes a file's content to the disk. False with errno.
bool SyncFile(const std::string& strPath);

// The folder of a path ("." when it has none) and the name in it.
std::string FolderOf(const std::string& strPath);
std::string NameOf(const std::string& strPath);

// "FOLDER/NAME".
std::string JoinPath(const std::string& strFolder, const std::string& strName);

// What stands at a path, links followed or not. Anything that cannot be examined is missing.
enum EFileKind
{
    KIND_MISSING,
    KIND_FILE,
    KIND_FOLDER,
    KIND_LINK,
    KIND_OTHER,  // device, FIFO, socket
};
EFileKind KindOf(const std::string& strPath, bool bFollow);

#endif
