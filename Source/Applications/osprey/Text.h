#ifndef OSPREY_TOOL_TEXT_H
#define OSPREY_TOOL_TEXT_H

#include <cstddef>
#include <string>
#include <vector>

// UTF-8 text as it comes from peers, file systems and command lines: none of it is to be trusted.

// Reads the code point that begins at nAt. Returns the number of its bytes, 1 to 4; 0 when no valid
// sequence begins there (cut short, overlong, a surrogate, past U+10FFFF) or nAt is the end.
size_t DecodeUTF8(const std::string& strText, size_t nAt, char32_t& cPoint);

bool IsValidUTF8(const std::string& strText);

// Valid, and without control characters.
bool IsCleanText(const std::string& strText);

// C0, DEL and C1.
bool IsControl(char32_t cPoint);

// No control by number, but it moves or reorders what a terminal shows.
bool IsMisleading(char32_t cPoint);

// The text in double quotes, on one line and harmless to a terminal: quotes and backslashes get a
// backslash, control characters, line separators, direction marks and bytes that are no UTF-8
// appear as \n, \t, \r, \xNN or \u{NNNN}. Two different texts never give the same result.
std::string QuoteText(const std::string& strText);

// As QuoteText, without the quotes, and quotes and backslashes as they are: for a progress bar.
std::string PlainText(const std::string& strText);

// A name as one line of a list, as sha256sum writes it: "\\", "\n" and "\r" stand for a backslash,
// a line feed and a carriage return. Back: false for a backslash before anything else.
std::string EscapeName(const std::string& strName);
bool UnescapeName(const std::string& strText, std::string& strName);

// Columns that a terminal gives to a text of PlainText.
int TextColumns(const std::string& strText);

// The text cut to at most nColumns; its end is kept and an ellipsis stands for what is missing.
std::string ShortenText(const std::string& strText, int nColumns);

// As NUL-terminated UTF-16. False when the text is not valid UTF-8.
bool ToUTF16(const std::string& strText, std::vector<unsigned short>& listUnits);

#endif
