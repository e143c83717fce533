#ifndef OSPREY_TESTS_FUZZROOT_H
#define OSPREY_TESTS_FUZZROOT_H

#include <string>

// What a name leads to, below the folder of the root: each kind of thing that a path can mean.
enum FUZZ_PLACE
{
    PLACE_SMALL,    // a file of a few bytes
    PLACE_LARGE,    // a file of several blocks
    PLACE_EMPTY,    // a file without a byte
    PLACE_NEW,      // nothing yet
    PLACE_FOLDER,   // a folder
    PLACE_INNER,    // nothing yet, in that folder
    PLACE_MISSING,  // nothing, in folders that do not exist
    PLACE_FIFO,     // what must not be opened
    PLACE_LINK,     // a link to nothing in the root
    PLACE_FULL,     // a link to a device without room
    PLACE_LONG,     // a name too long for any file system
    PLACE_REFUSED,  // below something that is no folder
    PLACE_COUNT
};

// A folder of its own among the temporary files; goes with the process, but not with one that
// aborts.
class CFuzzRoot
{
public:
    CFuzzRoot();
    ~CFuzzRoot();
    CFuzzRoot(const CFuzzRoot&) = delete;
    CFuzzRoot& operator=(const CFuzzRoot&) = delete;

    // Never leads out of the folder, whatever the number.
    std::string GetPath(unsigned int dwPlace) const;
    // The same; Restore makes the place what it was before.
    std::string GetPathToChange(unsigned int dwPlace);
    void Restore();

private:
    void Make(unsigned int dwPlace) const;
    void WriteFile(unsigned int dwPlace, size_t nSize) const;

    std::string m_strPath;
    unsigned int m_dwChanged = 0;  // a bit a place
};

#endif
