// RkArcTypeSupportInfo: the capabilities of the container types of the library, one object per
// type code. A container's GetSupportInfo hands out the shared object of its type.
#pragma once

#include <initializer_list>
#include <memory>

#include "RkArcSupportInfo.h"

namespace RkArcLib {

class RkArcTypeSupportInfo : public RkArcSupportInfo {
 public:
  explicit RkArcTypeSupportInfo(int type) : type_(type) {}
  // One object per type, made once; a code outside the types gives the base's answers.
  static std::shared_ptr<const RkArcSupportInfo> ForType(int type);

  bool CanCreateNew() const override;
  bool Slot02() const override;
  bool Slot03() const override;
  bool Slot04() const override;
  bool Slot05() const override;
  bool Slot06() const override;
  bool Slot07() const override;
  bool Slot10() const override;
  bool Slot11() const override;
  bool Slot12() const override;
  bool Slot13() const override;
  bool Slot14() const override;
  bool Slot15() const override;
  bool Slot16() const override;
  bool Slot17() const override;
  bool Slot18() const override;
  bool Slot19() const override;
  bool Slot20() const override;
  bool Slot21() const override;
  bool Slot22() const override;
  bool Slot23() const override;
  bool Slot25() const override;
  bool Slot26() const override;
  bool Slot27() const override;
  bool Slot28() const override;
  bool Slot29() const override;
  bool Slot30() const override;
  bool Slot31() const override;
  bool Slot32() const override;
  bool Slot33() const override;
  bool Slot34() const override;
  bool Slot35() const override;
  bool Slot36() const override;
  bool Slot37() const override;
  bool Slot38() const override;
  bool Slot39() const override;
  bool Slot40() const override;
  bool Slot41() const override;
  bool Slot42() const override;
  bool Slot43() const override;
  bool Slot44() const override;
  bool Slot45() const override;
  bool Slot46() const override;
  bool Slot47() const override;
  bool Slot48() const override;
  bool Slot49() const override;
  bool Slot50() const override;
  bool Slot51() const override;
  bool Slot52() const override;
  bool Slot53() const override;
  bool Slot54() const override;
  bool Slot55() const override;
  bool Slot56() const override;
  bool Slot57() const override;
  bool Slot58() const override;
  bool Slot59() const override;
  bool Slot60() const override;
  bool Slot61() const override;
  bool Slot62() const override;
  bool Slot63() const override;
  bool Slot64() const override;
  bool Slot65() const override;
  bool Slot66() const override;
  bool Slot67() const override;
  bool Slot68() const override;
  bool Slot70() const override;
  bool Slot71() const override;
  bool Slot72() const override;
  bool Slot73() const override;
  bool Slot74() const override;
  bool Slot75() const override;
  bool Slot76() const override;
  bool Slot77() const override;
  bool Slot78() const override;
  bool Slot79() const override;
  bool Slot80() const override;
  bool Slot81() const override;
  bool Slot82() const override;
  bool Slot84() const override;
  bool Slot85() const override;
  bool Slot86() const override;
  bool Slot87() const override;
  bool Slot88() const override;
  bool Slot89() const override;
  bool Slot90() const override;
  bool Slot91() const override;
  bool Slot92() const override;
  bool Slot93() const override;
  bool Slot94() const override;
  bool IsCompressionChoice(int choice) const override;
  bool IsLevelValid(int level) const override;
  bool IsEncryptionChoice(int choice) const override;
  bool IsAttributeModeValid(int mode) const override;
  bool IsSplitModeValid(const int* mode) const override;

 private:
  bool Is(std::initializer_list<int> types) const;

  int type_;
};

}  // namespace RkArcLib
