#include "FetchWork.h"

std::string CFetchWork::ReasonOf(int nCode) const
{
    switch (nCode)
    {
        case OSPREY_FILE_NO_MEMORY:
            return "out of memory";
        case OSPREY_FILE_NOT_FOUND:
            return "not found at the server, or refused";
        case OSPREY_FILE_OPEN_FAILED:
            return "it could not be opened, at the server or here";
        case OSPREY_FILE_READ_FAILED:
            return "the server could not read it";
        case OSPREY_FILE_WRITE_FAILED:
            return "it could not be written; the disk may be full";
        default:
            return "the server answered with code " + std::to_string(nCode);
    }
}
