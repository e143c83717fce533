#ifndef OSPREY_TESTS_EVENT_H
#define OSPREY_TESTS_EVENT_H

#include <iosfwd>
#include <memory>
#include <string>
#include <type_traits>

// A line of JSON that the tool printed, or a value in it. The JSON library's own header takes
// longer to compile than most tests: it stays behind this one.
class CEvent
{
public:
    // Null.
    CEvent();
    ~CEvent();
    CEvent(const CEvent& other);
    CEvent(CEvent&& other) noexcept;
    CEvent& operator=(CEvent other) noexcept;

    // Null when the text is none.
    static CEvent Parse(const std::string& strText);

    bool IsNull() const;
    bool Has(const char* pszKey) const;

    // Null when there is none.
    CEvent operator[](const char* pszKey) const;
    CEvent operator[](size_t nIndex) const;

    // As std::string, bool, double, or an integer. Fails the test when it is something else.
    template <typename T>
    T As() const
    {
        if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, bool>)
        {
            T value{};
            Store(value);
            return value;
        }
        else
        {
            long double value = 0;
            Store(value);
            return static_cast<T>(value);
        }
    }

    // False when it is of another type.
    template <typename T>
    bool operator==(const T& value) const
    {
        if constexpr (std::is_same_v<T, bool>)
        {
            return EqualsFlag(value);
        }
        else if constexpr (std::is_arithmetic_v<T>)
        {
            return EqualsNumber(static_cast<long double>(value));
        }
        else
        {
            return EqualsText(value);
        }
    }

    // For messages of tests.
    friend void PrintTo(const CEvent& event, std::ostream* pStream);

private:
    struct CValue;

    void Store(std::string& strText) const;
    void Store(bool& bFlag) const;
    void Store(long double& number) const;
    bool EqualsFlag(bool bFlag) const;
    bool EqualsNumber(long double number) const;
    bool EqualsText(const std::string& strText) const;

    std::unique_ptr<CValue> m_pValue;
};

#endif
