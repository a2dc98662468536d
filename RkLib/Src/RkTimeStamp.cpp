#include "RkTimeStamp.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <optional>
#include <stdexcept>

#include "RkError.h"
#include "RkString.h"

namespace RkLib {

namespace {

constexpr int64_t kSecondsPerDay = 86400;
constexpr int64_t kMsPerDay = kSecondsPerDay * 1000;
// 1601-01-01 to 1970-01-01: 369 years with 89 leap days.
constexpr int64_t kFileTimeEpochMs = 134774 * kMsPerDay;
constexpr uint64_t kTicksPerMs = 10000;
// The first instant of the FILETIME range, where the zone conversions stop.
constexpr int64_t kFileTimeFloorMs = -kFileTimeEpochMs;

int64_t FloorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

// Days since 1970-01-01 of a proleptic Gregorian date, by counting whole 400-year eras of 146097
// days from a year that starts in March, so the leap day falls at the end of the counted year.
constexpr int64_t DaysFromCivil(int64_t y, int64_t m, int64_t d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yearOfEra = y - era * 400;
  const int64_t dayOfYear = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

struct CivilDate {
  int32_t year;
  int32_t month;
  int32_t day;
};

// The inverse of DaysFromCivil; callers keep the count within the years 1..9999.
CivilDate CivilFromDays(int64_t days) {
  days += 719468;
  const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const int64_t dayOfEra = days - era * 146097;
  const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
  const int64_t day = dayOfYear - (153 * shiftedMonth + 2) / 5 + 1;
  const int64_t month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
  const int64_t year = yearOfEra + era * 400 + (month <= 2);
  return {static_cast<int32_t>(year), static_cast<int32_t>(month), static_cast<int32_t>(day)};
}

constexpr int64_t kFirstUnixMs = DaysFromCivil(1, 1, 1) * kMsPerDay;
constexpr int64_t kLastUnixMs = DaysFromCivil(9999, 12, 31) * kMsPerDay + kMsPerDay - 1;
constexpr int64_t kFirstCalendarDay = DaysFromCivil(1400, 1, 1);
constexpr int64_t kLastCalendarDay = DaysFromCivil(9999, 12, 31);
static_assert(kFileTimeEpochMs == -DaysFromCivil(1601, 1, 1) * kMsPerDay);

bool IsLeap(int64_t year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

int64_t MonthLength(int64_t year, int64_t month) {
  static constexpr int8_t kLengths[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12) return 0;
  return kLengths[month - 1] + (month == 2 && IsLeap(year));
}

// Wide arguments, so that foreign forms such as tm (tm_year + 1900) are tested before they are
// narrowed and cannot overflow on the way.
bool FieldsFormDate(int64_t year, int64_t month, int64_t day, int64_t hour, int64_t minute, int64_t second,
                    int64_t millisecond) {
  return year >= 1 && year <= 9999 && day >= 1 && day <= MonthLength(year, month) && hour >= 0 && hour < 24 &&
         minute >= 0 && minute < 60 && second >= 0 && second < 60 && millisecond >= 0 && millisecond <= 999;
}

RkTimeStamp CheckedStamp(int64_t year, int64_t month, int64_t day, int64_t hour, int64_t minute,
                         int64_t second, int64_t millisecond) {
  if (!FieldsFormDate(year, month, day, hour, minute, second, millisecond)) throw TimeStampNotValid();
  return RkTimeStamp(static_cast<int32_t>(year), static_cast<int32_t>(month), static_cast<int32_t>(day),
                     static_cast<int32_t>(hour), static_cast<int32_t>(minute), static_cast<int32_t>(second),
                     static_cast<int32_t>(millisecond));
}

// Only for stamps that passed isValid().
int64_t DaysOf(const RkTimeStamp& t) { return DaysFromCivil(t.year, t.month, t.day); }

int64_t UnixMsOf(const RkTimeStamp& t) {
  return DaysOf(t) * kMsPerDay + ((t.hour * 60 + t.minute) * 60 + t.second) * int64_t{1000} + t.millisecond;
}

// 1970-01-01 was a Thursday; 0 is Sunday as in tm and SYSTEMTIME.
int32_t DayOfWeek(int64_t days) { return static_cast<int32_t>(days + 4 - FloorDiv(days + 4, 7) * 7); }

}  // namespace

RkTimeStamp::RkTimeStamp(int32_t year_, int32_t month_, int32_t day_, int32_t hour_, int32_t minute_,
                         int32_t second_, int32_t millisecond_) noexcept {
  set(year_, month_, day_, hour_, minute_, second_, millisecond_);
}

void RkTimeStamp::set(int32_t year_, int32_t month_, int32_t day_, int32_t hour_, int32_t minute_,
                      int32_t second_, int32_t millisecond_) noexcept {
  isSet = 1;
  year = year_;
  month = month_;
  day = day_;
  hour = hour_;
  minute = minute_;
  second = second_;
  millisecond = millisecond_;
}

bool RkTimeStamp::IsLeapYear(int32_t year_) noexcept { return IsLeap(year_); }

int32_t RkTimeStamp::DaysInMonth(int32_t year_, int32_t month_) noexcept {
  return static_cast<int32_t>(MonthLength(year_, month_));
}

bool RkTimeStamp::isValid() const noexcept {
  return isSet && FieldsFormDate(year, month, day, hour, minute, second, millisecond);
}

void RkTimeStamp::checkRange(int target) const {
  struct Range {
    int64_t first;
    int64_t span;
  };
  // The test is on the distance from the first year, so a last year is first + span; for target 0
  // that admits 10000, which the calendar then refuses with its own message.
  static constexpr Range kRanges[] = {
      {1400, 8600}, {1900, INT32_MAX}, {1900, INT32_MAX}, {1980, 127}, {1601, 1399}, {1601, 1399}, {1, 9998},
  };
  RK_ASSERT(target >= 0 && target < static_cast<int>(std::size(kRanges)));
  const Range& range = kRanges[target];
  const int64_t distance = int64_t{year} - range.first;
  if (distance < 0 || distance > range.span) throw TimeStampOutOfBounds();
}

void RkTimeStamp::requireValid() const {
  if (!isValid()) throw TimeStampNotSet();
}

uint16_t RkTimeStamp::toDosDate() const {
  requireValid();
  checkRange(kTimeTargetDos);
  return static_cast<uint16_t>(((year - 1980) << 9) | (month << 5) | day);
}

uint16_t RkTimeStamp::toDosTime() const {
  requireValid();
  checkRange(kTimeTargetDos);
  return static_cast<uint16_t>((hour << 11) | (minute << 5) | (second / 2));
}

uint32_t RkTimeStamp::toDosDateTime() const { return uint32_t{toDosDate()} << 16 | toDosTime(); }

RkTimeStamp RkTimeStamp::FromDosDateTime(uint16_t date, uint16_t time) {
  return CheckedStamp(1980 + (date >> 9), (date >> 5) & 0x0F, date & 0x1F, time >> 11, (time >> 5) & 0x3F,
                      (time & 0x1F) * 2, 0);
}

RkTimeStamp RkTimeStamp::FromDosDateTime(uint32_t dateTime) {
  return FromDosDateTime(static_cast<uint16_t>(dateTime >> 16), static_cast<uint16_t>(dateTime));
}

uint64_t RkTimeStamp::toFileTime() const {
  requireValid();
  checkRange(kTimeTargetFileTime);
  return static_cast<uint64_t>(UnixMsOf(*this) + kFileTimeEpochMs) * kTicksPerMs;
}

RkTimeStamp RkTimeStamp::FromFileTime(uint64_t fileTime) {
  // Below 2^64 / 10^4 the millisecond count always fits an int64.
  return FromUnixMilliseconds(static_cast<int64_t>(fileTime / kTicksPerMs) - kFileTimeEpochMs);
}

RkSystemTime RkTimeStamp::toSystemTime() const {
  requireValid();
  checkRange(kTimeTargetSystemTime);
  RkSystemTime out;
  out.year = static_cast<uint16_t>(year);
  out.month = static_cast<uint16_t>(month);
  out.dayOfWeek = static_cast<uint16_t>(DayOfWeek(DaysOf(*this)));
  out.day = static_cast<uint16_t>(day);
  out.hour = static_cast<uint16_t>(hour);
  out.minute = static_cast<uint16_t>(minute);
  out.second = static_cast<uint16_t>(second);
  out.milliseconds = static_cast<uint16_t>(millisecond);
  return out;
}

RkTimeStamp RkTimeStamp::FromSystemTime(const RkSystemTime& in) {
  return CheckedStamp(in.year, in.month, in.day, in.hour, in.minute, in.second, in.milliseconds);
}

int64_t RkTimeStamp::toUnixSeconds() const { return FloorDiv(toUnixMilliseconds(), 1000); }

int64_t RkTimeStamp::toUnixMilliseconds() const {
  requireValid();
  checkRange(kTimeTargetFields);
  return UnixMsOf(*this);
}

RkTimeStamp RkTimeStamp::FromUnixSeconds(int64_t seconds, int32_t millisecond_) {
  if (millisecond_ < 0 || millisecond_ > 999) throw TimeStampNotValid();
  if (seconds < kFirstUnixMs / 1000 || seconds > kLastUnixMs / 1000) throw DateOutOfBounds();
  return FromUnixMilliseconds(seconds * 1000 + millisecond_);
}

RkTimeStamp RkTimeStamp::FromUnixMilliseconds(int64_t milliseconds) {
  if (milliseconds < kFirstUnixMs || milliseconds > kLastUnixMs) throw DateOutOfBounds();
  const int64_t days = FloorDiv(milliseconds, kMsPerDay);
  const int64_t msOfDay = milliseconds - days * kMsPerDay;
  const CivilDate date = CivilFromDays(days);
  const int32_t secondOfDay = static_cast<int32_t>(msOfDay / 1000);
  return RkTimeStamp(date.year, date.month, date.day, secondOfDay / 3600, secondOfDay / 60 % 60,
                     secondOfDay % 60, static_cast<int32_t>(msOfDay % 1000));
}

void RkTimeStamp::toTm(struct tm& out) const {
  requireValid();
  checkRange(kTimeTargetTm);
  const int64_t days = DaysOf(*this);
  out = tm{};
  out.tm_year = year - 1900;
  out.tm_mon = month - 1;
  out.tm_mday = day;
  out.tm_hour = hour;
  out.tm_min = minute;
  out.tm_sec = second;
  out.tm_wday = DayOfWeek(days);
  out.tm_yday = static_cast<int>(days - DaysFromCivil(year, 1, 1));
  out.tm_isdst = -1;
}

RkTimeStamp RkTimeStamp::FromTm(const struct tm& in) {
  return CheckedStamp(in.tm_year + int64_t{1900}, in.tm_mon + int64_t{1}, in.tm_mday, in.tm_hour, in.tm_min,
                      in.tm_sec, 0);
}

int32_t RkTimeStamp::toCalendarDays() const {
  requireValid();
  checkRange(kTimeTargetCalendar);
  return RkCalendarDays(year, month, day);
}

RkTimeStamp RkTimeStamp::FromCalendarDays(int32_t days) {
  if (days < kFirstCalendarDay || days > kLastCalendarDay) throw DateOutOfBounds();
  const CivilDate date = CivilFromDays(days);
  return RkTimeStamp(date.year, date.month, date.day);
}

RkTimeStamp RkTimeStamp::toLocal() const {
  requireValid();
  checkRange(kTimeTargetSystemTime);
  const int64_t utcMs = UnixMsOf(*this);
  const int64_t localMs = utcMs + LocalOffsetAt(FloorDiv(utcMs, 1000)) * 1000;
  return FromUnixMilliseconds(std::max(localMs, kFileTimeFloorMs));
}

RkTimeStamp RkTimeStamp::toUniversal() const {
  requireValid();
  checkRange(kTimeTargetSystemTime);
  const int64_t localMs = UnixMsOf(*this);
  const int64_t localSeconds = FloorDiv(localMs, 1000);
  // The offset belongs to the universal instant we are looking for, so guess it from the local
  // reading and correct once. A corrected offset that holds at its own instant is the answer (in an
  // hour that repeats, either reading is). If it does not hold, the local time lies in a skipped hour;
  // the offset from before the skip, the smaller one, moves it past the change as a clock that had
  // not yet been set forward would read.
  const int64_t guess = LocalOffsetAt(localSeconds);
  const int64_t corrected = LocalOffsetAt(localSeconds - guess);
  const int64_t offset =
      LocalOffsetAt(localSeconds - corrected) == corrected ? corrected : std::min(guess, corrected);
  return FromUnixMilliseconds(std::max(localMs - offset * 1000, kFileTimeFloorMs));
}

RkTimeStamp RkTimeStamp::Now() {
  const int64_t utcMs = ClockMilliseconds();
  return FromUnixMilliseconds(utcMs + LocalOffsetAt(FloorDiv(utcMs, 1000)) * 1000);
}

RkTimeStamp RkTimeStamp::UtcNow() { return FromUnixMilliseconds(ClockMilliseconds()); }

bool operator==(const RkTimeStamp& a, const RkTimeStamp& b) noexcept { return (a <=> b) == 0; }

std::strong_ordering operator<=>(const RkTimeStamp& a, const RkTimeStamp& b) noexcept {
  if (!a.isSet || !b.isSet) return (a.isSet != 0) <=> (b.isSet != 0);
  const int32_t RkTimeStamp::*const kFields[] = {
      &RkTimeStamp::year,   &RkTimeStamp::month,  &RkTimeStamp::day,        &RkTimeStamp::hour,
      &RkTimeStamp::minute, &RkTimeStamp::second, &RkTimeStamp::millisecond};
  for (auto field : kFields) {
    if (auto order = a.*field <=> b.*field; order != 0) return order;
  }
  return std::strong_ordering::equal;
}

int32_t RkCalendarDays(int32_t year, int32_t month, int32_t day) {
  if (year < 1400 || year > 9999) throw std::out_of_range("Year is out of valid range: 1400..9999");
  if (month < 1 || month > 12) throw std::out_of_range("Month number is out of range 1..12");
  if (day < 1 || day > 31) throw std::out_of_range("Day of month value is out of range 1..31");
  if (day > MonthLength(year, month)) throw std::out_of_range("Day of month is not valid for year");
  return static_cast<int32_t>(DaysFromCivil(year, month, day));
}

namespace {

constexpr uint32_t kStyleFormMask = 0xFF;

// The stamp as it is to be shown, or nothing. Each path writes the whole result. The obvious form,
// `shown = stamp; try { shown = stamp.toLocal(); } catch ...`, is miscompiled by GCC 12 at -O2: its
// mod-ref analysis takes the call as always writing the return slot, drops the first copy as dead,
// and leaves `shown` unwritten when the call throws (-fno-ipa-modref restores it).
std::optional<RkTimeStamp> StampToShow(const RkTimeStamp& stamp, bool local) {
  if (!stamp.isValid()) return std::nullopt;
  if (!local) return stamp;
  try {
    return stamp.toLocal();
  } catch (const TimeStampOutOfBounds&) {
    return stamp;
  }
}

RkString DatePart(const RkTimeStamp& t, uint32_t style) {
  char text[64];
  switch (style & kStyleFormMask) {
    case kDateStyleDayMonthYear:
      std::snprintf(text, sizeof text, "%02d.%02d.%04d", t.day, t.month, t.year);
      break;
    case kDateStyleMonthDayYear:
      std::snprintf(text, sizeof text, "%02d/%02d/%04d", t.month, t.day, t.year);
      break;
    default:
      std::snprintf(text, sizeof text, "%04d-%02d-%02d", t.year, t.month, t.day);
      break;
  }
  return RkString::FromAscii(text);
}

RkString TimePart(const RkTimeStamp& t, uint32_t style) {
  char text[64];
  switch (style & kStyleFormMask) {
    case kTimeStyleMinutes:
      std::snprintf(text, sizeof text, "%02d:%02d", t.hour, t.minute);
      break;
    case kTimeStyleMilliseconds:
      std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", t.hour, t.minute, t.second, t.millisecond);
      break;
    default:
      std::snprintf(text, sizeof text, "%02d:%02d:%02d", t.hour, t.minute, t.second);
      break;
  }
  return RkString::FromAscii(text);
}

}  // namespace

RkString RkFormatDate(const RkTimeStamp& stamp, uint32_t style) {
  const std::optional<RkTimeStamp> shown = StampToShow(stamp, style & kFormatLocalTime);
  return shown ? DatePart(*shown, style) : RkString();
}

RkString RkFormatTime(const RkTimeStamp& stamp, uint32_t style) {
  const std::optional<RkTimeStamp> shown = StampToShow(stamp, style & kFormatLocalTime);
  return shown ? TimePart(*shown, style) : RkString();
}

RkString RkFormatTimeStamp(const RkTimeStamp& stamp, uint32_t dateStyle, uint32_t timeStyle, uint32_t flags) {
  const std::optional<RkTimeStamp> shown =
      StampToShow(stamp, (dateStyle | timeStyle | flags) & kFormatLocalTime);
  if (!shown) return RkString();
  RkString text = DatePart(*shown, dateStyle);
  text += (flags & kFormatIsoSeparator) ? u'T' : u' ';
  text += TimePart(*shown, timeStyle);
  return text;
}

}  // namespace RkLib
