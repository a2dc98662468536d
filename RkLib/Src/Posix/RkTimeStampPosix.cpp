// The clock and the zone of the process, from the C library.
#include <ctime>

#include "RkError.h"
#include "RkTimeStamp.h"

namespace RkLib {

// Dates up to 9999 and back to year 1 need more than 32 bits of seconds.
static_assert(sizeof(time_t) >= 8);

int64_t RkTimeStamp::LocalOffsetAt(int64_t utcSeconds) {
  const time_t when = static_cast<time_t>(utcSeconds);
  struct tm local {};
  RK_API_CHECK(localtime_r(&when, &local) != nullptr);
  return local.tm_gmtoff;
}

int64_t RkTimeStamp::ClockMilliseconds() {
  timespec now{};
  RK_API_CHECK(clock_gettime(CLOCK_REALTIME, &now) == 0);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

}  // namespace RkLib
