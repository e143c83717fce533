#ifndef OSPREY_TOOL_FILEWRITER_H
#define OSPREY_TOOL_FILEWRITER_H

#include "QueuedSink.h"

// Writes the bytes of packets to a descriptor, as they come.
class CFileWriter final : public IBatchWriter
{
public:
    // Takes the descriptor over.
    explicit CFileWriter(int nFile) : m_nFile(nFile) {}
    ~CFileWriter() override;
    CFileWriter(const CFileWriter&) = delete;
    CFileWriter& operator=(const CFileWriter&) = delete;

    bool Write(const CPacketBatch& batch, std::string& strReason) override;
    bool Close(std::string& strReason) override;

private:
    int m_nFile;
};

#endif
