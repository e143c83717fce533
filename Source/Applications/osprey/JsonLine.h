#ifndef OSPREY_TOOL_JSONLINE_H
#define OSPREY_TOOL_JSONLINE_H

#include <memory>
#include <string>
#include <vector>

#include "LibOsprey.h"

// One event as a line of JSON: the time, the event's name, then the fields in the order in which
// they were added. Valid UTF-8 whatever the texts hold: bytes that are none become U+FFFD. Harmless
// to a terminal: control characters and direction marks are escaped.
class CJsonLine final
{
public:
    explicit CJsonLine(const char* pszEvent);
    ~CJsonLine();
    CJsonLine(CJsonLine&& other) noexcept;
    CJsonLine& operator=(CJsonLine&& other) noexcept;
    CJsonLine(const CJsonLine&) = delete;
    CJsonLine& operator=(const CJsonLine&) = delete;

    CJsonLine& Text(const char* pszKey, const std::string& strValue);
    CJsonLine& Number(const char* pszKey, Orb_U64 ullValue);
    CJsonLine& Numbers(const char* pszKey, const std::vector<Orb_U32>& listValues);
    CJsonLine& Real(const char* pszKey, double dValue);
    CJsonLine& Flag(const char* pszKey, bool bValue);

    // Bytes, seconds, and bytes a second: how every finished transfer is told.
    CJsonLine& Moved(Orb_U64 ullBytes, double dSeconds);

    // Without the line feed.
    std::string ToString() const;

private:
    struct CFields;
    std::unique_ptr<CFields> m_pFields;
};

#endif
