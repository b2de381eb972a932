// What the whole plug-in shares: the one reference to the host's Interface
// object, the four routines that report to it, the percentage, the file test,
// the doubling of quotes, and the reading rules by which every converter turns
// a source column into what the host is given.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/object.h"

namespace cnv {

// The host's Interface object, set by each Converti and kept until the next.
host::Value& InterfaceCorrente();

// AddMsg, ChangeMsg, AddInfo of InterfaceCorrente with the text. A failing
// host call passes to the caller.
void AddMsg(const std::string& msg);
void ChangeMsg(const std::string& msg);
void AddInfo(const std::string& msg);

// UpdateProgress(Percent, Stop) of InterfaceCorrente, both by reference, so
// that the host can set the caller's Stop flag.
void UpdateProgress(int32_t percent, host::Value& stop);

// The share of parte in totale as a whole percentage: the quotient rounded to
// four decimals (ties to even), times 100, floored. 1 of 3 gives 33, 2 of 3
// gives 66. A totale of 0 raises division by zero (11).
int32_t Percentuale(int64_t parte, int64_t totale);

// True if a file lies at the path (one of length zero too). A blank path
// gives false without touching the file system; nothing raises.
bool EsisteFile(const std::string& percorso);

// Each single quote doubled, over the whole text.
std::string RaddoppiaApici(const std::string& testo);

// A boolean answer of the host taken as true: all bits set (-1), as a 16- or
// 32-bit integer or a boolean. Anything else is false.
bool IsTrue(const host::Value& v);

// Reading rules.

// The value as text; Null gives "" and a number its host::NumberText, as
// "100000" or "72.5" (the value model's own conversion).
using host::TextOf;

// Dates in text columns are read as people type them, day first:
//   day, month and year with "/", "-" or "." between them (the same twice):
//     "7/3/1950", "07-03-1950", "07.03.50";
//   day, Italian month name or its first three letters in any case, and year,
//     with blanks, "/", "-" or "." between them: "7 marzo 1950", "07-MAR-1950",
//     "7 mar. 50";
//   the year first, as "1950-03-07" (four digits, then month and day);
//   a two-digit year in the window 00-29 as 2000-2029, 30-99 as 1930-1999;
//   an optional time of day after blanks (or "T"), its parts joined by ":" or
//   ".": "07/03/1950 10.30", "07/03/1950 10:30:15.250".
// Nothing is read month first: "03/07/1950" is the 3rd of July, and "mar 7
// 1950" or "March 7, 1950" read as no date, as do dates that don't exist
// ("31/02/2014").

// The date that the value holds or reads as, as "dd/mm/yyyy" (time of day
// dropped). Null and empty give ""; a text that reads as no date comes back
// unchanged.
std::string DateText(const host::Value& v);

// As DateText when the value holds a date or a text that reads as one;
// otherwise the fallback ("01/01/2012" in most converters). Never empty.
std::string DateText(const host::Value& v, const std::string& fallback);

// The longest beginning of the value's text that reads as a decimal number:
// an optional sign, digits, one period, digits, blanks passed over, and no
// exponent; 0 when there is none. So "7,5" gives 7, "1 e 1/2" 1, "1e3" 1,
// "1.5.2" 1.5 and "abc" 0. A value that holds a number gives that number
// (1e20, whose text is "1E+20", stays 1e20). Raises Overflow (6) for digits
// beyond a double's range.
double NumberOf(const host::Value& v);

// The content of a binary column as a value of bytes, sharing binary content
// with v instead of copying it; Null gives no bytes, text its bytes.
host::Value BytesOf(host::Value v);

// Today's date from the system clock, or the date that tests fixed with
// SetTodayForTesting (a default Date puts the clock back).
host::Date Today();
void SetTodayForTesting(const host::Date& today);

}  // namespace cnv
