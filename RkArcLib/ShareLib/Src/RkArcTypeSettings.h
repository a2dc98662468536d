// RkArcTypeSettings: per-type options that a host may register with the factory. The factory fills
// the primary extension and whether the type offers extra options; the rest is the host's.
#pragma once

#include "RkString.h"

namespace RkArcLib {

class RkArcTypeSettings {
 public:
  RkArcTypeSettings() = default;
  RkArcTypeSettings(const RkArcTypeSettings&) = delete;
  RkArcTypeSettings& operator=(const RkArcTypeSettings&) = delete;
  virtual ~RkArcTypeSettings();

  virtual void SetPrimaryExtension(const RkLib::RkString& extension);
  virtual RkLib::RkString GetPrimaryExtension() const;
  virtual void SetHasOptions(bool hasOptions);
  virtual bool HasOptions() const;
  virtual void SetMethod(int method);
  virtual int GetMethod() const;
  virtual void SetLevel(int level);
  virtual int GetLevel() const;
  virtual void SetWideNames(bool wide);
  // false makes the factory answer that new archives take narrow names only.
  virtual bool AllowsWideNames() const;

 private:
  RkLib::RkString primaryExtension_;
  bool hasOptions_ = false;
  int method_ = 0;
  int level_ = 0;
  bool wideNames_ = true;
};

}  // namespace RkArcLib
