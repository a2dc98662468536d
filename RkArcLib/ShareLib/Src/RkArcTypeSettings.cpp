#include "RkArcTypeSettings.h"

namespace RkArcLib {

RkArcTypeSettings::~RkArcTypeSettings() = default;

void RkArcTypeSettings::SetPrimaryExtension(const RkLib::RkString& extension) {
  primaryExtension_ = extension;
}
RkLib::RkString RkArcTypeSettings::GetPrimaryExtension() const { return primaryExtension_; }
void RkArcTypeSettings::SetHasOptions(bool hasOptions) { hasOptions_ = hasOptions; }
bool RkArcTypeSettings::HasOptions() const { return hasOptions_; }
void RkArcTypeSettings::SetMethod(int method) { method_ = method; }
int RkArcTypeSettings::GetMethod() const { return method_; }
void RkArcTypeSettings::SetLevel(int level) { level_ = level; }
int RkArcTypeSettings::GetLevel() const { return level_; }
void RkArcTypeSettings::SetWideNames(bool wide) { wideNames_ = wide; }
bool RkArcTypeSettings::AllowsWideNames() const { return wideNames_; }

}  // namespace RkArcLib
