// RkTimeStamp: the one date and time value of the libraries.
//
// The stamp keeps broken-down fields and no zone, so it can carry the local DOS times of zip, the
// universal FILETIMEs of NTFS records and the Unix seconds of tar alike. Each conversion to another
// form first refuses an unset or invalid stamp (TimeStampNotSet) and then tests the year against
// the range of its target (TimeStampOutOfBounds). Decoding a foreign form whose fields do not make
// a date throws TimeStampNotValid; decoding a count that lands outside the years 1..9999 (or the
// calendar's 1400..9999) throws DateOutOfBounds. Readers that want a fallback catch those by name.
#pragma once

#include <compare>
#include <cstdint>

struct tm;

namespace RkLib {

class RkString;

// Not RkError classes: a missing or odd date is rarely a failure of the operation, so callers
// decide case by case. All are empty.
class RkTimeStampError {};
class TimeStampNotSet : public RkTimeStampError {};
class TimeStampNotValid : public RkTimeStampError {};
class TimeStampOutOfBounds : public RkTimeStampError {};
class DateTimeError {};
class DateOutOfBounds : public DateTimeError {};

// Target numbers of the range test, with the years each accepts.
enum RkTimeTarget : int {
  kTimeTargetCalendar = 0,    // calendar day numbers: 1400..10000 (the calendar itself stops at 9999)
  kTimeTargetTm = 1,          // C library tm fields: 1900 and above
  kTimeTargetTime64 = 2,      // C library 64-bit calendar time, counted through tm fields: as kTimeTargetTm
  kTimeTargetDos = 3,         // DOS date and time: 1980..2107
  kTimeTargetFileTime = 4,    // FILETIME: 1601..3000
  kTimeTargetSystemTime = 5,  // RkSystemTime, also the local and universal time conversions: 1601..3000
  kTimeTargetFields = 6,      // plain fields such as Unix seconds: 1..9999
};

// The broken-down form of the Windows API, kept for records and callers that speak it.
struct RkSystemTime {
  uint16_t year = 0;
  uint16_t month = 0;
  uint16_t dayOfWeek = 0;  // 0 is Sunday; computed on output, ignored on input
  uint16_t day = 0;
  uint16_t hour = 0;
  uint16_t minute = 0;
  uint16_t second = 0;
  uint16_t milliseconds = 0;
};

class RkTimeStamp {
 public:
  uint8_t isSet = 0;
  int32_t year = 0;
  int32_t month = 0;
  int32_t day = 0;
  int32_t hour = 0;
  int32_t minute = 0;
  int32_t second = 0;
  int32_t millisecond = 0;

  RkTimeStamp() = default;
  // Stores the fields as given and marks the stamp set; isValid() tells whether they make a date.
  RkTimeStamp(int32_t year, int32_t month, int32_t day, int32_t hour = 0, int32_t minute = 0,
              int32_t second = 0, int32_t millisecond = 0) noexcept;

  void set(int32_t year, int32_t month, int32_t day, int32_t hour = 0, int32_t minute = 0, int32_t second = 0,
           int32_t millisecond = 0) noexcept;
  void clear() noexcept { *this = RkTimeStamp(); }

  static bool IsLeapYear(int32_t year) noexcept;
  // 0 for a month outside 1..12.
  static int32_t DaysInMonth(int32_t year, int32_t month) noexcept;
  // Set, and the fields pass the calendar test of the years 1..9999.
  bool isValid() const noexcept;

  // Throws TimeStampOutOfBounds if the year lies outside the target's range. Only the year is
  // looked at, so a stamp of year 10000 passes target 0. An unknown target is our own fault.
  void checkRange(int target) const;

  // DOS date in the high word, time in the low one: the order of zip's 32-bit check values.
  // Two-second resolution; an odd second and the milliseconds are dropped.
  uint16_t toDosDate() const;
  uint16_t toDosTime() const;
  uint32_t toDosDateTime() const;
  // Throws TimeStampNotValid for fields that do not form a date (month 0, hour 24, second 60, ...);
  // the common all-zero "no date" value is one of them.
  static RkTimeStamp FromDosDateTime(uint16_t date, uint16_t time);
  static RkTimeStamp FromDosDateTime(uint32_t dateTime);

  // 100-nanosecond ticks since 1601-01-01. Ticks below a millisecond are dropped on the way in.
  uint64_t toFileTime() const;
  static RkTimeStamp FromFileTime(uint64_t fileTime);

  RkSystemTime toSystemTime() const;
  static RkTimeStamp FromSystemTime(const RkSystemTime& systemTime);

  // Seconds since 1970-01-01, negative before it. The milliseconds forms keep the fraction.
  int64_t toUnixSeconds() const;
  int64_t toUnixMilliseconds() const;
  static RkTimeStamp FromUnixSeconds(int64_t seconds, int32_t millisecond = 0);
  static RkTimeStamp FromUnixMilliseconds(int64_t milliseconds);

  // tm_isdst is -1: the stamp does not know whether its fields are daylight time.
  void toTm(struct tm& out) const;
  static RkTimeStamp FromTm(const struct tm& in);

  // Days since 1970-01-01 in the proleptic Gregorian calendar, limited as RkCalendarDays is.
  int32_t toCalendarDays() const;
  static RkTimeStamp FromCalendarDays(int32_t days);

  // Reads the stamp as universal time and gives the local time of the process's zone, or the
  // reverse. They follow the zone the C library has loaded (tzset). A result before 1601-01-01
  // 00:00 is held at that instant, so the first hours of the FILETIME range still convert.
  RkTimeStamp toLocal() const;
  RkTimeStamp toUniversal() const;

  // The clock, to the millisecond: local wall time, and universal time.
  static RkTimeStamp Now();
  static RkTimeStamp UtcNow();

  // Unset stamps are equal to each other and order before every set one; set ones compare by the
  // fields from year to millisecond.
  friend bool operator==(const RkTimeStamp& a, const RkTimeStamp& b) noexcept;
  friend std::strong_ordering operator<=>(const RkTimeStamp& a, const RkTimeStamp& b) noexcept;

 private:
  void requireValid() const;
  // Seconds east of UTC in the process's zone at the given universal instant.
  static int64_t LocalOffsetAt(int64_t utcSeconds);
  static int64_t ClockMilliseconds();
};

// The calendar behind target 0: days since 1970-01-01 for a date of the years 1400..9999. Throws
// std::out_of_range with the calendar's own texts ("Year is out of valid range: 1400..9999",
// "Month number is out of range 1..12", "Day of month value is out of range 1..31", "Day of month
// is not valid for year").
int32_t RkCalendarDays(int32_t year, int32_t month, int32_t day);

// Style words of the date and time parameters of messages. The low byte picks the form; an unknown
// form falls back to the first one of its list, since a message should still show its date. Plain
// constants rather than enums, so that a form and a flag can be or-ed into one word.
inline constexpr uint32_t kDateStyleIso = 0;           // 2026-11-22
inline constexpr uint32_t kDateStyleDayMonthYear = 1;  // 22.11.2026
inline constexpr uint32_t kDateStyleMonthDayYear = 2;  // 11/22/2026

inline constexpr uint32_t kTimeStyleSeconds = 0;       // 14:05:09
inline constexpr uint32_t kTimeStyleMinutes = 1;       // 14:05
inline constexpr uint32_t kTimeStyleMilliseconds = 2;  // 14:05:09.123

// The stamp holds universal time; show it in the local zone. Allowed in any of the words. A stamp
// the local conversion refuses (before 1601 or after 3000) is shown as it stands.
inline constexpr uint32_t kFormatLocalTime = 0x100;
// 'T' between date and time instead of a space.
inline constexpr uint32_t kFormatIsoSeparator = 0x200;

// An unset or invalid stamp gives an empty string; these never throw a time stamp error.
RkString RkFormatDate(const RkTimeStamp& stamp, uint32_t style);
RkString RkFormatTime(const RkTimeStamp& stamp, uint32_t style);
RkString RkFormatTimeStamp(const RkTimeStamp& stamp, uint32_t dateStyle, uint32_t timeStyle, uint32_t flags);

}  // namespace RkLib
