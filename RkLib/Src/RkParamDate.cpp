#include "RkParam.h"
#include "RkTimeStamp.h"

namespace RkLib {

RkParamDate::RkParamDate(const RkTimeStamp& stamp, uint32_t dateStyle)
    : stamp_(std::make_unique<RkTimeStamp>(stamp)), dateStyle_(dateStyle) {}
RkParamDate::~RkParamDate() = default;
const RkString& RkParamDate::format(RkString& target) const { return target = RkFormatDate(*stamp_, dateStyle_); }
RkParam* RkParamDate::clone() const { return new (std::nothrow) RkParamDate(*stamp_, dateStyle_); }

RkParamTime::RkParamTime(const RkTimeStamp& stamp, uint32_t timeStyle)
    : stamp_(std::make_unique<RkTimeStamp>(stamp)), timeStyle_(timeStyle) {}
RkParamTime::~RkParamTime() = default;
const RkString& RkParamTime::format(RkString& target) const { return target = RkFormatTime(*stamp_, timeStyle_); }
RkParam* RkParamTime::clone() const { return new (std::nothrow) RkParamTime(*stamp_, timeStyle_); }

RkParamTimeStamp::RkParamTimeStamp(const RkTimeStamp& stamp, uint32_t dateStyle, uint32_t timeStyle, uint32_t flags)
    : stamp_(std::make_unique<RkTimeStamp>(stamp)), dateStyle_(dateStyle), timeStyle_(timeStyle), flags_(flags) {}
RkParamTimeStamp::~RkParamTimeStamp() = default;
const RkString& RkParamTimeStamp::format(RkString& target) const {
  return target = RkFormatTimeStamp(*stamp_, dateStyle_, timeStyle_, flags_);
}
RkParam* RkParamTimeStamp::clone() const {
  return new (std::nothrow) RkParamTimeStamp(*stamp_, dateStyle_, timeStyle_, flags_);
}

}  // namespace RkLib
