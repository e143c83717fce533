#ifndef OSPREY_TOOL_SUMFETCH_H
#define OSPREY_TOOL_SUMFETCH_H

#include <string>
#include <utility>
#include <vector>

#include "CommandLine.h"
#include "Deadline.h"
#include "Output.h"
#include "Progress.h"
#include "SumList.h"

// The digests that a server tells of its files: one list that was named, or, for each file, the
// SHA256SUMS that stands nearest: in the file's folder, the one above, and so on.
//
// Thread: main.
class CSumFetch final
{
public:
    // All of them must outlive it.
    CSumFetch(const COptions& options, const CDeadline& deadline, COutput& output,
              CProgress& progress);

    // Fetches what the command line asks for. What is wrong with a list is told, and counts as not
    // verified. Returns the exit code: EXIT_DONE when the server had its say, whatever that was.
    int Fetch();

    // The digest of a file of the server; null, and told, when no list has it.
    const std::string* Find(const std::string& strName);

    // Names at the server, each with its digest, that the list which was named holds.
    std::vector<std::pair<std::string, std::string>> Listed() const;
    // Such a name without the folder of the list.
    std::string BelowList(const std::string& strName) const;

    // A list that was asked for, and what became of it.
    struct CList
    {
        std::string m_strName;
        bool m_bThere = false;
        std::string m_strText;
        std::string m_strFault;  // why it is not there
        CSumList m_sums;
    };

private:
    void AddList(const std::string& strName);
    const CList* Nearest(const std::string& strName) const;
    void ReportFault(const std::string& strShown, const std::string& strReason);

    const COptions& m_options;
    const CDeadline& m_deadline;
    COutput& m_output;
    CProgress& m_progress;
    std::vector<CList> m_listLists;
};

#endif
