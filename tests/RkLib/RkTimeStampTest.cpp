#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "RkError.h"
#include "RkString.h"
#include "RkTimeStamp.h"

using namespace RkLib;

namespace {

using Stamp = RkTimeStamp;

// Puts TZ back and reloads the zone, so the other suites see the machine's zone again.
class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* zone) {
    if (const char* old = std::getenv("TZ")) saved_ = old;
    setenv("TZ", zone, 1);
    tzset();
  }
  ~ScopedTimeZone() {
    if (saved_) {
      setenv("TZ", saved_->c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  std::optional<std::string> saved_;
};

// POSIX rule strings, so the tests need no time zone database.
constexpr char kEastern[] = "EST5EDT,M3.2.0,M11.1.0";
constexpr char kPlusTwoThirty[] = "FXT-02:30";

enum Outcome { kOk, kNotSet, kNotValid, kOutOfBounds, kDateOutOfBounds };

Outcome OutcomeOf(const std::function<void()>& f) {
  try {
    f();
    return kOk;
  } catch (const TimeStampNotSet&) {
    return kNotSet;
  } catch (const TimeStampNotValid&) {
    return kNotValid;
  } catch (const TimeStampOutOfBounds&) {
    return kOutOfBounds;
  } catch (const DateOutOfBounds&) {
    return kDateOutOfBounds;
  }
}

Stamp Unset(Stamp s) {
  s.isSet = 0;
  return s;
}

}  // namespace

TEST(RkTimeStamp, CalendarTest) {
  const struct {
    const char* name;
    Stamp stamp;
    bool valid;
  } cases[] = {
      // clang-format off
      {"29 Feb 1900", {1900, 2, 29}, false},           {"29 Feb 2000", {2000, 2, 29}, true},
      {"29 Feb 2004", {2004, 2, 29}, true},            {"29 Feb 2001", {2001, 2, 29}, false},
      {"month 13", {2020, 13, 1}, false},              {"month 0", {2020, 0, 1}, false},
      {"31 April", {2020, 4, 31}, false},              {"30 April", {2020, 4, 30}, true},
      {"day 0", {2020, 1, 0}, false},                  {"32 January", {2020, 1, 32}, false},
      {"hour 24", {2020, 1, 1, 24}, false},            {"minute 60", {2020, 1, 1, 0, 60}, false},
      {"second 60", {2020, 1, 1, 0, 0, 60}, false},    {"millisecond -1", {2020, 1, 1, 0, 0, 0, -1}, false},
      {"millisecond 1000", {2020, 1, 1, 0, 0, 0, 1000}, false},
      {"last instant", {9999, 12, 31, 23, 59, 59, 999}, true},
      {"year 1", {1, 1, 1}, true},                     {"year 0", {0, 12, 31}, false},
      {"year 10000", {10000, 1, 1}, false},            {"never set", Stamp(), false},
      {"good fields, not set", Unset({2020, 1, 1}), false},
      // clang-format on
  };
  for (const auto& c : cases) EXPECT_EQ(c.stamp.isValid(), c.valid) << c.name;
}

TEST(RkTimeStamp, RangeTestByTarget) {
  const struct {
    int target;
    int32_t year;
    bool accepted;
  } cases[] = {
      // One line per range.
      // clang-format off
      {0, 1399, false}, {0, 1400, true}, {0, 10000, true}, {0, 10001, false},
      {1, 1899, false}, {1, 1900, true}, {2, 1899, false}, {2, 9999, true},
      {3, 1979, false}, {3, 1980, true}, {3, 2107, true},  {3, 2108, false},
      {4, 1600, false}, {4, 1601, true}, {4, 3000, true},  {4, 3001, false},
      {5, 1600, false}, {5, 1601, true}, {5, 3000, true},  {5, 3001, false},
      {6, 0, false},    {6, 1, true},    {6, 9999, true},  {6, 10000, false},
      // clang-format on
  };
  for (const auto& c : cases) {
    const Stamp stamp(c.year, 1, 1);
    EXPECT_EQ(OutcomeOf([&] { stamp.checkRange(c.target); }), c.accepted ? kOk : kOutOfBounds)
        << "target " << c.target << " year " << c.year;
  }
}

TEST(RkTimeStampDeathTest, UnknownTargetIsAnAssertion) {
  const Stamp stamp(2000, 1, 1);
  EXPECT_EXIT(stamp.checkRange(7), ::testing::ExitedWithCode(kFatalExitStatus & 0xFF), "");
  EXPECT_EXIT(stamp.checkRange(-1), ::testing::ExitedWithCode(kFatalExitStatus & 0xFF), "");
}

TEST(RkTimeStamp, EveryConversionRefusesUnsetAndInvalid) {
  const struct {
    const char* name;
    std::function<void(const Stamp&)> convert;
  } conversions[] = {
      {"DOS date", [](const Stamp& s) { s.toDosDate(); }},
      {"DOS time", [](const Stamp& s) { s.toDosTime(); }},
      {"DOS date and time", [](const Stamp& s) { s.toDosDateTime(); }},
      {"FILETIME", [](const Stamp& s) { s.toFileTime(); }},
      {"system time", [](const Stamp& s) { s.toSystemTime(); }},
      {"Unix seconds", [](const Stamp& s) { s.toUnixSeconds(); }},
      {"Unix milliseconds", [](const Stamp& s) { s.toUnixMilliseconds(); }},
      {"tm", [](const Stamp& s) { tm out{}; s.toTm(out); }},
      {"calendar days", [](const Stamp& s) { s.toCalendarDays(); }},
      {"local", [](const Stamp& s) { s.toLocal(); }},
      {"universal", [](const Stamp& s) { s.toUniversal(); }},
  };
  // Years 0, 1000 and 10000 are outside some targets' ranges: the set test must come first.
  const Stamp bad[] = {Stamp(), Unset({2000, 1, 1}), {1000, 2, 30}, {10000, 1, 1}};
  for (const auto& c : conversions) {
    for (const Stamp& s : bad) EXPECT_EQ(OutcomeOf([&] { c.convert(s); }), kNotSet) << c.name;
  }
}

TEST(RkTimeStamp, DosFields) {
  // Exact both ways.
  const struct {
    const char* name;
    Stamp stamp;
    uint16_t date, time;
  } exact[] = {
      {"first DOS day", {1980, 1, 1}, 0x0021, 0x0000},
      {"last DOS instant", {2107, 12, 31, 23, 59, 58}, 0xFF9F, 0xBF7D},
      {"29 Feb 1980", {1980, 2, 29}, 0x005D, 0},
  };
  for (const auto& c : exact) {
    EXPECT_EQ(c.stamp.toDosDate(), c.date) << c.name;
    EXPECT_EQ(c.stamp.toDosTime(), c.time) << c.name;
    EXPECT_EQ(c.stamp.toDosDateTime(), uint32_t{c.date} << 16 | c.time) << c.name;
    EXPECT_EQ(Stamp::FromDosDateTime(c.date, c.time), c.stamp) << c.name;
  }
  EXPECT_EQ(Stamp::FromDosDateTime(uint32_t{0x00210000}), Stamp(1980, 1, 1));
  // The odd second and the milliseconds are dropped.
  EXPECT_EQ(Stamp(2026, 11, 22, 14, 5, 9, 999).toDosDateTime(), uint32_t{0x5D76} << 16 | 0x70A4);
  for (const Stamp& s : {Stamp(1979, 12, 31, 23, 59, 58), Stamp(2108, 1, 1)}) {
    EXPECT_EQ(OutcomeOf([&] { s.toDosDateTime(); }), kOutOfBounds) << s.year;
  }
  const struct {
    const char* name;
    uint16_t date, time;
  } invalid[] = {
      {"all zero", 0x0000, 0x0000},         {"29 Feb 1981", 1 << 9 | 2 << 5 | 29, 0},
      {"month 13", 1 << 9 | 13 << 5 | 1, 0}, {"31 April", 44 << 9 | 4 << 5 | 31, 0},
      {"hour 24", 0x0021, 24 << 11},        {"minute 60", 0x0021, 60 << 5},
      {"second 60", 0x0021, 30},
  };
  for (const auto& c : invalid) {
    EXPECT_EQ(OutcomeOf([&] { Stamp::FromDosDateTime(c.date, c.time); }), kNotValid) << c.name;
  }
}

TEST(RkTimeStamp, DosRoundTripKeepsEvenSeconds) {
  // Steps of a prime number of seconds reach every field value over the DOS range.
  for (int64_t s = Stamp(1980, 1, 1).toUnixSeconds(); s < Stamp(2108, 1, 1).toUnixSeconds();
       s += 8191 * 997) {
    const Stamp t = Stamp::FromUnixSeconds(s, 321);
    const Stamp back = Stamp::FromDosDateTime(t.toDosDateTime());
    ASSERT_EQ(back, Stamp(t.year, t.month, t.day, t.hour, t.minute, t.second & ~1)) << s;
  }
}

TEST(RkTimeStamp, FileTime) {
  const struct {
    const char* name;
    Stamp stamp;
    Outcome outcome;
    uint64_t ticks;
  } cases[] = {
      {"Unix epoch", {1970, 1, 1}, kOk, 116444736000000000},
      {"FILETIME epoch", {1601, 1, 1}, kOk, 0},
      {"after 400 years of 146097 days", {2001, 1, 1}, kOk, 126227808000000000},
      {"milliseconds", {1970, 1, 1, 0, 0, 0, 123}, kOk, 116444736001230000},
      {"last of 3000", {3000, 12, 31, 23, 59, 59, 999}, kOk, 441796895999990000},
      {"1600", {1600, 12, 31, 23, 59, 59}, kOutOfBounds, 0},
      {"3001", {3001, 1, 1}, kOutOfBounds, 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(OutcomeOf([&] { c.stamp.toFileTime(); }), c.outcome) << c.name;
    if (c.outcome != kOk) continue;
    EXPECT_EQ(c.stamp.toFileTime(), c.ticks) << c.name;
    EXPECT_EQ(Stamp::FromFileTime(c.ticks), c.stamp) << c.name;
  }
  EXPECT_EQ(Stamp::FromFileTime(116444736001239999), Stamp(1970, 1, 1, 0, 0, 0, 123));
  EXPECT_EQ(Stamp::FromFileTime(2650467743999999999), Stamp(9999, 12, 31, 23, 59, 59, 999));
  EXPECT_EQ(OutcomeOf([] { Stamp::FromFileTime(2650467744000000000); }), kDateOutOfBounds);
  EXPECT_EQ(OutcomeOf([] { Stamp::FromFileTime(UINT64_MAX); }), kDateOutOfBounds);
}

TEST(RkTimeStamp, UnixSeconds) {
  const struct {
    Stamp stamp;
    int64_t seconds;
  } cases[] = {
      {{1970, 1, 1}, 0},         {{1969, 12, 31, 23, 59, 59}, -1}, {{2038, 1, 19, 3, 14, 8}, 2147483648},
      {{2000, 3, 1}, 951868800}, {{1, 1, 1}, -62135596800},        {{9999, 12, 31, 23, 59, 59}, 253402300799},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.stamp.toUnixSeconds(), c.seconds) << c.seconds;
    EXPECT_EQ(Stamp::FromUnixSeconds(c.seconds), c.stamp) << c.seconds;
  }
  const Stamp beforeEpoch(1969, 12, 31, 23, 59, 59, 500);
  EXPECT_EQ(beforeEpoch.toUnixSeconds(), -1);
  EXPECT_EQ(beforeEpoch.toUnixMilliseconds(), -500);
  EXPECT_EQ(Stamp::FromUnixSeconds(-1, 500), beforeEpoch);
  EXPECT_EQ(Stamp::FromUnixMilliseconds(-1), Stamp(1969, 12, 31, 23, 59, 59, 999));
  for (int64_t out : {int64_t{253402300800}, int64_t{-62135596801}, INT64_MAX, INT64_MIN}) {
    EXPECT_EQ(OutcomeOf([&] { Stamp::FromUnixSeconds(out); }), kDateOutOfBounds) << out;
  }
  EXPECT_EQ(OutcomeOf([] { Stamp::FromUnixMilliseconds(INT64_MIN); }), kDateOutOfBounds);
  EXPECT_EQ(OutcomeOf([] { Stamp::FromUnixSeconds(0, 1000); }), kNotValid);
}

TEST(RkTimeStamp, TmAgreesWithTheCLibrary) {
  for (const Stamp& s : {Stamp(2000, 3, 1, 12, 34, 56), Stamp(1900, 1, 1), Stamp(9999, 12, 31, 23, 59, 59)}) {
    tm fields;
    s.toTm(fields);
    EXPECT_EQ(fields.tm_isdst, -1);
    EXPECT_EQ(Stamp::FromTm(fields), s);
    // timegm fills in weekday and day of the year afresh; they must match ours.
    tm control = fields;
    EXPECT_EQ(timegm(&control), s.toUnixSeconds());
    EXPECT_EQ(control.tm_wday, fields.tm_wday);
    EXPECT_EQ(control.tm_yday, fields.tm_yday);
  }
  tm fields;
  EXPECT_EQ(OutcomeOf([&] { Stamp(1899, 12, 31).toTm(fields); }), kOutOfBounds);
  Stamp(2000, 3, 1).toTm(fields);
  const std::pair<int tm::*, int> breakages[] = {
      {&tm::tm_mon, 12}, {&tm::tm_sec, 60}, {&tm::tm_year, INT_MAX}};
  for (auto [field, value] : breakages) {
    tm bad = fields;
    bad.*field = value;
    EXPECT_EQ(OutcomeOf([&] { Stamp::FromTm(bad); }), kNotValid) << value;
  }
}

TEST(RkTimeStamp, SystemTime) {
  const RkSystemTime st = Stamp(2026, 11, 22, 14, 5, 9, 123).toSystemTime();
  EXPECT_EQ(st.year, 2026);
  EXPECT_EQ(st.dayOfWeek, 0);  // a Sunday
  EXPECT_EQ(st.milliseconds, 123);
  EXPECT_EQ(Stamp::FromSystemTime(st), Stamp(2026, 11, 22, 14, 5, 9, 123));
  EXPECT_EQ(OutcomeOf([] { Stamp(1600, 12, 31).toSystemTime(); }), kOutOfBounds);
  EXPECT_EQ(OutcomeOf([] { Stamp(3001, 1, 1).toSystemTime(); }), kOutOfBounds);
  RkSystemTime bad = st;
  bad.month = 2;
  bad.day = 29;
  EXPECT_EQ(OutcomeOf([&] { Stamp::FromSystemTime(bad); }), kNotValid);
}

TEST(RkTimeStamp, CalendarDays) {
  EXPECT_EQ(Stamp(1970, 1, 1).toCalendarDays(), 0);
  EXPECT_EQ(Stamp(2000, 3, 1).toCalendarDays(), 11017);
  EXPECT_EQ(Stamp::FromCalendarDays(11017), Stamp(2000, 3, 1));
  EXPECT_EQ(Stamp::FromCalendarDays(Stamp(1400, 1, 1).toCalendarDays()), Stamp(1400, 1, 1));
  EXPECT_EQ(OutcomeOf([] { Stamp(1399, 12, 31).toCalendarDays(); }), kOutOfBounds);
  EXPECT_EQ(OutcomeOf([] { Stamp::FromCalendarDays(RkCalendarDays(1400, 1, 1) - 1); }), kDateOutOfBounds);
  EXPECT_EQ(OutcomeOf([] { Stamp::FromCalendarDays(RkCalendarDays(9999, 12, 31) + 1); }), kDateOutOfBounds);

  // Year 10000 gets past the range test of target 0; the calendar is what refuses it.
  const Stamp y10000(10000, 1, 1);
  EXPECT_EQ(OutcomeOf([&] { y10000.checkRange(kTimeTargetCalendar); }), kOk);
  const struct {
    int32_t year, month, day;
    const char* message;
  } refused[] = {
      {10000, 1, 1, "Year is out of valid range: 1400..9999"},
      {1399, 12, 31, "Year is out of valid range: 1400..9999"},
      {2000, 13, 1, "Month number is out of range 1..12"},
      {2000, 1, 32, "Day of month value is out of range 1..31"},
      {1900, 2, 29, "Day of month is not valid for year"},
  };
  for (const auto& c : refused) {
    try {
      RkCalendarDays(c.year, c.month, c.day);
      ADD_FAILURE() << c.message;
    } catch (const std::out_of_range& e) {
      EXPECT_STREQ(e.what(), c.message);
    }
  }
}

TEST(RkTimeStamp, ComparisonByFieldsAndSetFlag) {
  const struct {
    const char* name;
    Stamp a, b;
    std::strong_ordering order;
  } cases[] = {
      {"both unset", Stamp(), Unset({2000, 1, 1}), std::strong_ordering::equal},
      {"unset before set", Unset({2000, 1, 1}), {2000, 1, 1}, std::strong_ordering::less},
      {"same fields", {2000, 1, 1, 1, 2, 3, 4}, {2000, 1, 1, 1, 2, 3, 4}, std::strong_ordering::equal},
      {"year before month", {2000, 12, 31}, {2001, 1, 1}, std::strong_ordering::less},
      {"hour before minute", {2000, 1, 1, 2, 0}, {2000, 1, 1, 1, 59}, std::strong_ordering::greater},
      {"millisecond last", {2000, 1, 1, 0, 0, 0, 1}, {2000, 1, 1}, std::strong_ordering::greater},
  };
  for (const auto& c : cases) {
    EXPECT_TRUE((c.a <=> c.b) == c.order) << c.name;
    EXPECT_TRUE((c.b <=> c.a) == (0 <=> c.order)) << c.name;
    EXPECT_EQ(c.a == c.b, c.order == 0) << c.name;
  }
}

TEST(RkTimeStamp, LocalAndUniversal) {
  const ScopedTimeZone zone(kEastern);
  const struct {
    const char* name;
    Stamp utc, local;
  } cases[] = {
      {"winter", {2026, 1, 15, 12, 0}, {2026, 1, 15, 7, 0}},
      {"summer", {2026, 7, 15, 12, 0}, {2026, 7, 15, 8, 0}},
      {"over the year's end", {2026, 1, 1, 3, 30, 0, 250}, {2025, 12, 31, 22, 30, 0, 250}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.utc.toLocal(), c.local) << c.name;
    EXPECT_EQ(c.local.toUniversal(), c.utc) << c.name;
  }
  // 02:30 on the spring day is skipped; it is read with the winter offset.
  EXPECT_EQ(Stamp(2026, 3, 8, 2, 30).toUniversal(), Stamp(2026, 3, 8, 7, 30));
  // Five hours west of the first FILETIME instant there is nothing; the conversion holds there.
  EXPECT_EQ(Stamp(1601, 1, 1, 3, 0).toLocal(), Stamp(1601, 1, 1));
  EXPECT_EQ(OutcomeOf([] { Stamp(1600, 12, 31, 23, 0).toLocal(); }), kOutOfBounds);
  EXPECT_EQ(OutcomeOf([] { Stamp(3001, 1, 1).toUniversal(); }), kOutOfBounds);

  const ScopedTimeZone east(kPlusTwoThirty);
  EXPECT_EQ(Stamp(2026, 11, 22, 14, 5, 9).toLocal(), Stamp(2026, 11, 22, 16, 35, 9));
  EXPECT_EQ(Stamp(1601, 1, 1, 1, 0).toUniversal(), Stamp(1601, 1, 1));
}

TEST(RkTimeStamp, NowIsTheClockInTheLocalZone) {
  const ScopedTimeZone zone(kPlusTwoThirty);
  const Stamp before = Stamp::UtcNow();
  const Stamp now = Stamp::Now();
  const Stamp after = Stamp::UtcNow();
  ASSERT_TRUE(now.isValid());
  EXPECT_LE(before.toLocal(), now);
  EXPECT_LE(now, after.toLocal());
}

TEST(RkTimeStamp, Formatter) {
  const Stamp t(2026, 11, 22, 14, 5, 9, 7);
  const struct {
    const char* name;
    std::function<RkString()> format;
    const char* expected;
  } cases[] = {
      {"ISO date", [&] { return RkFormatDate(t, kDateStyleIso); }, "2026-11-22"},
      {"dotted date", [&] { return RkFormatDate(t, kDateStyleDayMonthYear); }, "22.11.2026"},
      {"US date", [&] { return RkFormatDate(t, kDateStyleMonthDayYear); }, "11/22/2026"},
      {"unknown date style", [&] { return RkFormatDate(t, 77); }, "2026-11-22"},
      {"year 1", [] { return RkFormatDate(Stamp(1, 2, 3), kDateStyleIso); }, "0001-02-03"},
      {"seconds", [&] { return RkFormatTime(t, kTimeStyleSeconds); }, "14:05:09"},
      {"minutes", [&] { return RkFormatTime(t, kTimeStyleMinutes); }, "14:05"},
      {"milliseconds", [&] { return RkFormatTime(t, kTimeStyleMilliseconds); }, "14:05:09.007"},
      {"stamp", [&] { return RkFormatTimeStamp(t, kDateStyleDayMonthYear, kTimeStyleMinutes, 0); },
       "22.11.2026 14:05"},
      {"ISO stamp",
       [&] { return RkFormatTimeStamp(t, kDateStyleIso, kTimeStyleSeconds, kFormatIsoSeparator); },
       "2026-11-22T14:05:09"},
      {"unset date", [] { return RkFormatDate(Stamp(), kDateStyleIso); }, ""},
      {"unset time", [] { return RkFormatTime(Unset({2000, 1, 1}), kTimeStyleSeconds); }, ""},
      {"invalid stamp", [] { return RkFormatTimeStamp(Stamp(2001, 2, 29), 0, 0, 0); }, ""},
  };
  for (const auto& c : cases) EXPECT_EQ(c.format().toUtf8(), c.expected) << c.name;
}

TEST(RkTimeStamp, FormatterConvertsToLocalOnRequest) {
  const ScopedTimeZone zone(kPlusTwoThirty);
  const Stamp late(2026, 11, 22, 23, 0);
  EXPECT_EQ(RkFormatTimeStamp(late, kDateStyleIso, kTimeStyleMinutes, kFormatLocalTime).toUtf8(),
            "2026-11-23 01:30");
  EXPECT_EQ(RkFormatDate(late, kDateStyleIso | kFormatLocalTime).toUtf8(), "2026-11-23");
  EXPECT_EQ(RkFormatTime(late, kTimeStyleMinutes | kFormatLocalTime).toUtf8(), "01:30");
  // Outside the zone conversion's years the stamp is shown as it stands.
  EXPECT_EQ(RkFormatTimeStamp(Stamp(1500, 6, 1, 12), 0, 0, kFormatLocalTime).toUtf8(), "1500-06-01 12:00:00");
}
