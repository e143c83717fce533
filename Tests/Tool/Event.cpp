#include "Event.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <utility>

struct CEvent::CValue
{
    CValue() : m_json(nullptr) {}

    nlohmann::json m_json;
};

CEvent::CEvent() : m_pValue(std::make_unique<CValue>()) {}

CEvent::~CEvent() = default;

CEvent::CEvent(const CEvent& other) : m_pValue(std::make_unique<CValue>(*other.m_pValue)) {}

CEvent::CEvent(CEvent&& other) noexcept = default;

CEvent& CEvent::operator=(CEvent other) noexcept
{
    std::swap(m_pValue, other.m_pValue);
    return *this;
}

CEvent CEvent::Parse(const std::string& strText)
{
    CEvent event;
    event.m_pValue->m_json = nlohmann::json::parse(strText, nullptr, false);
    return event;
}

bool CEvent::IsNull() const
{
    return m_pValue->m_json.is_null() || m_pValue->m_json.is_discarded();
}

bool CEvent::Has(const char* pszKey) const
{
    return m_pValue->m_json.contains(pszKey);
}

CEvent CEvent::operator[](const char* pszKey) const
{
    CEvent event;
    if (Has(pszKey))
    {
        event.m_pValue->m_json = m_pValue->m_json[pszKey];
    }
    return event;
}

CEvent CEvent::operator[](size_t nIndex) const
{
    CEvent event;
    if (m_pValue->m_json.is_array() && nIndex < m_pValue->m_json.size())
    {
        event.m_pValue->m_json = m_pValue->m_json[nIndex];
    }
    return event;
}

void CEvent::Store(std::string& strText) const
{
    EXPECT_TRUE(m_pValue->m_json.is_string()) << m_pValue->m_json;
    strText = m_pValue->m_json.is_string() ? m_pValue->m_json.get<std::string>() : std::string();
}

void CEvent::Store(bool& bFlag) const
{
    EXPECT_TRUE(m_pValue->m_json.is_boolean()) << m_pValue->m_json;
    bFlag = EqualsFlag(true);
}

void CEvent::Store(long double& number) const
{
    const nlohmann::json& json = m_pValue->m_json;
    EXPECT_TRUE(json.is_number()) << json;
    if (json.is_number_unsigned())
    {
        number = static_cast<long double>(json.get<unsigned long long>());
    }
    else if (json.is_number_integer())
    {
        number = static_cast<long double>(json.get<long long>());
    }
    else if (json.is_number())
    {
        number = static_cast<long double>(json.get<double>());
    }
}

bool CEvent::EqualsFlag(bool bFlag) const
{
    return m_pValue->m_json.is_boolean() && m_pValue->m_json.get<bool>() == bFlag;
}

bool CEvent::EqualsNumber(long double number) const
{
    return m_pValue->m_json.is_number() && As<long double>() == number;
}

bool CEvent::EqualsText(const std::string& strText) const
{
    return m_pValue->m_json.is_string() && m_pValue->m_json.get<std::string>() == strText;
}

void PrintTo(const CEvent& event, std::ostream* pStream)
{
    *pStream << event.m_pValue->m_json;
}
