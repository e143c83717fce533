#ifndef OSPREY_TOOL_TEMPFILE_H
#define OSPREY_TOOL_TEMPFILE_H

#include <string>

#include "Descriptor.h"

// Files under construction. They stand in the folder of their target, so that a rename completes
// them, under names that nobody can foresee and no peer may use. Each is locked (flock(2)) for as
// long as its maker has it open, so that others can tell what a dead process left behind.

// Creates an empty file with a new name in a folder, stores its path and returns its descriptor.
// The mode is what a new file gets, or nMode when that is not 0. -1 with errno.
int CreateTemp(const std::string& strFolder, unsigned int nMode, std::string& strPath);

// The same in a folder that is open; stores the name, and the file. False with errno.
bool CreateTempAt(const CDescriptor& folder, unsigned int nMode, std::string& strName,
                  CDescriptor& file);

// Locks a file that is about to get such a name. False when another run has it locked; a file
// system without locks lets it pass.
bool LockTemp(int nFile);

// Removes a file under construction whose maker is dead; leaves any other, as others' files.
void RemoveDeadTemp(int nFolder, const std::string& strName);

// The same for all of a folder, but not for what stands below it.
void RemoveDeadTemps(const std::string& strFolder);

// A file name (one component) that is kept for files under construction, and for what the tool
// notes in a folder.
bool IsTempName(const std::string& strName);

// Writes a file's content to the disk. False with errno.
bool SyncFile(const std::string& strPath);
bool SyncDescriptor(int nFile);

// The folder of a path ("." when it has none) and the name in it.
std::string FolderOf(const std::string& strPath);
std::string NameOf(const std::string& strPath);

// "FOLDER/NAME".
std::string JoinPath(const std::string& strFolder, const std::string& strName);

// The path without links, "." and ".."; the path itself when nothing stands there.
std::string RealPath(const std::string& strPath);

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
EFileKind KindOfMode(unsigned int nMode);

#endif
