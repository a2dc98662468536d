// RkArcSupportInfo: what a container type can do. The caller asks before it offers an operation,
// so a format never has to refuse one itself. The slots keep a fixed order; most have no meaning
// beyond the places that ask them, hence their numbers for names. Every answer of the base is no.
#pragma once

namespace RkArcLib {

class RkArcSupportInfo {
 public:
  RkArcSupportInfo() = default;
  RkArcSupportInfo(const RkArcSupportInfo&) = delete;
  RkArcSupportInfo& operator=(const RkArcSupportInfo&) = delete;
  virtual ~RkArcSupportInfo();

  virtual bool CanCreateNew() const;
  virtual bool Slot02() const;
  virtual bool Slot03() const;
  virtual bool Slot04() const;
  virtual bool Slot05() const;
  virtual bool Slot06() const;
  virtual bool Slot07() const;
  virtual bool IsCompressionChoice(int choice) const;
  virtual bool IsLevelValid(int level) const;
  virtual bool Slot10() const;
  virtual bool Slot11() const;
  virtual bool Slot12() const;
  virtual bool Slot13() const;
  virtual bool Slot14() const;
  virtual bool Slot15() const;
  virtual bool Slot16() const;
  virtual bool Slot17() const;
  virtual bool Slot18() const;
  virtual bool Slot19() const;
  virtual bool Slot20() const;
  virtual bool Slot21() const;
  virtual bool Slot22() const;
  virtual bool Slot23() const;
  virtual bool IsEncryptionChoice(int choice) const;
  virtual bool Slot25() const;
  virtual bool Slot26() const;
  virtual bool Slot27() const;
  virtual bool Slot28() const;
  virtual bool Slot29() const;
  virtual bool Slot30() const;
  virtual bool Slot31() const;
  virtual bool Slot32() const;
  virtual bool Slot33() const;
  virtual bool Slot34() const;
  virtual bool Slot35() const;
  virtual bool Slot36() const;
  virtual bool Slot37() const;
  virtual bool Slot38() const;
  virtual bool Slot39() const;
  virtual bool Slot40() const;
  virtual bool Slot41() const;
  virtual bool Slot42() const;
  virtual bool Slot43() const;
  virtual bool Slot44() const;
  virtual bool Slot45() const;
  virtual bool Slot46() const;
  virtual bool Slot47() const;
  virtual bool Slot48() const;
  virtual bool Slot49() const;
  virtual bool Slot50() const;
  virtual bool Slot51() const;
  virtual bool Slot52() const;
  virtual bool Slot53() const;
  virtual bool Slot54() const;
  virtual bool Slot55() const;
  virtual bool Slot56() const;
  virtual bool Slot57() const;
  virtual bool Slot58() const;
  virtual bool Slot59() const;
  virtual bool Slot60() const;
  virtual bool Slot61() const;
  virtual bool Slot62() const;
  virtual bool Slot63() const;
  virtual bool Slot64() const;
  virtual bool Slot65() const;
  virtual bool Slot66() const;
  virtual bool Slot67() const;
  virtual bool Slot68() const;
  virtual bool IsAttributeModeValid(int mode) const;
  virtual bool Slot70() const;
  virtual bool Slot71() const;
  virtual bool Slot72() const;
  virtual bool Slot73() const;
  virtual bool Slot74() const;
  virtual bool Slot75() const;
  virtual bool Slot76() const;
  virtual bool Slot77() const;
  virtual bool Slot78() const;
  virtual bool Slot79() const;
  virtual bool Slot80() const;
  virtual bool Slot81() const;
  virtual bool Slot82() const;
  virtual bool IsSplitModeValid(const int* mode) const;
  virtual bool Slot84() const;
  virtual bool Slot85() const;
  virtual bool Slot86() const;
  virtual bool Slot87() const;
  virtual bool Slot88() const;
  virtual bool Slot89() const;
  virtual bool Slot90() const;
  virtual bool Slot91() const;
  virtual bool Slot92() const;
  virtual bool Slot93() const;
  virtual bool Slot94() const;
};

}  // namespace RkArcLib
