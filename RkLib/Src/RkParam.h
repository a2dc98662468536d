// Message parameters and RkMsg: the text for the user travels apart from the exception, as a
// message id, a type and typed parameters that the language module's text is formatted with.
#pragma once

#include <cstdint>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

#include "RkString.h"

namespace RkLib {

class RkTimeStamp;

// Message types.
inline constexpr uint32_t kMsgTypeInfo = 0;
inline constexpr uint32_t kMsgTypeError = 3;

class RkParam {
 public:
  virtual ~RkParam() = default;
  // The parameter as text, written into target (which is also returned).
  virtual const RkString& format(RkString& target) const = 0;
  // A deep copy, or null if the allocation gave null.
  virtual RkParam* clone() const = 0;

  RkString text() const {
    RkString s;
    format(s);
    return s;
  }
};

class RkParamString final : public RkParam {
 public:
  explicit RkParamString(RkString value) : value_(std::move(value)) {}
  const RkString& format(RkString& target) const override { return target = value_; }
  RkParam* clone() const override { return new (std::nothrow) RkParamString(value_); }
  const RkString& value() const { return value_; }

 private:
  RkString value_;
};

// A number or character with a printf format; a null format takes the default of the kind. The
// value's class, not the format's length letters, decides how it is read, so a format that does
// not match the value cannot read past it.
template <typename T, const char16_t* DefaultFormat>
class RkParamWithFormat final : public RkParam {
 public:
  explicit RkParamWithFormat(T value, const char16_t* format = nullptr)
      : value_(value), format_(format ? format : DefaultFormat) {}
  const RkString& format(RkString& target) const override {
    if constexpr (std::is_same_v<T, char16_t>) {
      target = RkFormatChar(format_.c_str(), value_);
    } else if constexpr (std::is_signed_v<T>) {
      target = RkFormatSigned(format_.c_str(), value_);
    } else {
      target = RkFormatUnsigned(format_.c_str(), value_);
    }
    return target;
  }
  RkParam* clone() const override { return new (std::nothrow) RkParamWithFormat(*this); }
  T value() const { return value_; }

 private:
  T value_;
  RkString format_;
};

inline constexpr char16_t kFormatChar[] = u"%c";
inline constexpr char16_t kFormatShort[] = u"%hd";
inline constexpr char16_t kFormatInt[] = u"%d";
inline constexpr char16_t kFormatLong[] = u"%ld";
inline constexpr char16_t kFormatInt64[] = u"%lld";
inline constexpr char16_t kFormatUnsignedShort[] = u"%hu";
inline constexpr char16_t kFormatUnsignedInt[] = u"%u";
inline constexpr char16_t kFormatUnsignedLong[] = u"%lu";
inline constexpr char16_t kFormatUnsignedInt64[] = u"%llu";

// "Long" is 32-bit here, as in the archive formats whose fields it shows.
using RkParamCharWithFormat = RkParamWithFormat<char16_t, kFormatChar>;
using RkParamShortWithFormat = RkParamWithFormat<int16_t, kFormatShort>;
using RkParamIntWithFormat = RkParamWithFormat<int32_t, kFormatInt>;
using RkParamLongWithFormat = RkParamWithFormat<int32_t, kFormatLong>;
using RkParamInt64WithFormat = RkParamWithFormat<int64_t, kFormatInt64>;
using RkParamUnsignedShortWithFormat = RkParamWithFormat<uint16_t, kFormatUnsignedShort>;
using RkParamUnsignedIntWithFormat = RkParamWithFormat<uint32_t, kFormatUnsignedInt>;
using RkParamUnsignedLongWithFormat = RkParamWithFormat<uint32_t, kFormatUnsignedLong>;
using RkParamUnsignedInt64WithFormat = RkParamWithFormat<uint64_t, kFormatUnsignedInt64>;

// Date and time parameters hold their own copy of the stamp and format with the date and time
// formatters of RkTimeStamp.
class RkParamDate final : public RkParam {
 public:
  RkParamDate(const RkTimeStamp& stamp, uint32_t dateStyle);
  ~RkParamDate() override;
  const RkString& format(RkString& target) const override;
  RkParam* clone() const override;

 private:
  std::unique_ptr<RkTimeStamp> stamp_;
  uint32_t dateStyle_;
};

class RkParamTime final : public RkParam {
 public:
  RkParamTime(const RkTimeStamp& stamp, uint32_t timeStyle);
  ~RkParamTime() override;
  const RkString& format(RkString& target) const override;
  RkParam* clone() const override;

 private:
  std::unique_ptr<RkTimeStamp> stamp_;
  uint32_t timeStyle_;
};

class RkParamTimeStamp final : public RkParam {
 public:
  RkParamTimeStamp(const RkTimeStamp& stamp, uint32_t dateStyle, uint32_t timeStyle, uint32_t flags);
  ~RkParamTimeStamp() override;
  const RkString& format(RkString& target) const override;
  RkParam* clone() const override;

 private:
  std::unique_ptr<RkTimeStamp> stamp_;
  uint32_t dateStyle_;
  uint32_t timeStyle_;
  uint32_t flags_;
};

class RkMsg {
 public:
  using ParamList = std::vector<std::unique_ptr<RkParam>>;

  RkMsg() = default;
  RkMsg(uint32_t id, uint32_t type) : id_(id), type_(type) {}
  // The first parameter; a null string is simply not added.
  RkMsg(uint32_t id, uint32_t type, const RkParam& first) : RkMsg(id, type) { add(first); }
  RkMsg(uint32_t id, uint32_t type, const RkString& first) : RkMsg(id, type) { add(first); }
  RkMsg(uint32_t id, uint32_t type, const char16_t* first) : RkMsg(id, type) { add(first); }
  RkMsg(uint32_t id, uint32_t type, int32_t first, const char16_t* format = nullptr) : RkMsg(id, type) {
    add(first, format);
  }
  RkMsg(uint32_t id, uint32_t type, uint32_t first, const char16_t* format = nullptr) : RkMsg(id, type) {
    add(first, format);
  }
  RkMsg(uint32_t id, uint32_t type, int64_t first, const char16_t* format = nullptr) : RkMsg(id, type) {
    add(first, format);
  }
  RkMsg(uint32_t id, uint32_t type, uint64_t first, const char16_t* format = nullptr) : RkMsg(id, type) {
    add(first, format);
  }

  // Copying clones every parameter; if a clone fails the target is left as it was.
  RkMsg(const RkMsg& other);
  RkMsg& operator=(const RkMsg& other);
  RkMsg(RkMsg&&) noexcept = default;
  RkMsg& operator=(RkMsg&&) noexcept = default;
  ~RkMsg() = default;

  RkMsg& add(const RkParam& param);
  RkMsg& add(std::unique_ptr<RkParam> param);
  RkMsg& add(const RkString& value) { return add(std::make_unique<RkParamString>(value)); }
  RkMsg& add(const char16_t* value) { return value ? add(RkString(value)) : *this; }
  RkMsg& add(char16_t value, const char16_t* format = nullptr) {
    return add(std::make_unique<RkParamCharWithFormat>(value, format));
  }
  RkMsg& add(int16_t value, const char16_t* format = nullptr) {
    return add(std::make_unique<RkParamShortWithFormat>(value, format));
  }
  RkMsg& add(int32_t value, const char16_t* format = nullptr) {
    return add(std::make_unique<RkParamIntWithFormat>(value, format));
  }
  RkMsg& add(uint32_t value, const char16_t* format = nullptr) {
    return add(std::make_unique<RkParamUnsignedIntWithFormat>(value, format));
  }
  RkMsg& add(int64_t value, const char16_t* format = nullptr) {
    return add(std::make_unique<RkParamInt64WithFormat>(value, format));
  }
  RkMsg& add(uint64_t value, const char16_t* format = nullptr) {
    return add(std::make_unique<RkParamUnsignedInt64WithFormat>(value, format));
  }

  uint32_t id() const noexcept { return id_; }
  uint32_t type() const noexcept { return type_; }
  size_t paramCount() const noexcept { return params_ ? params_->size() : 0; }
  const RkParam& param(size_t i) const { return *params_->at(i); }
  // Each parameter as text, in order: what a language-module text is filled with.
  std::vector<RkString> paramTexts() const;

 private:
  std::unique_ptr<ParamList> params_;
  uint32_t id_ = 0xFFFFFFFFu;
  uint32_t type_ = 0;
};

}  // namespace RkLib
