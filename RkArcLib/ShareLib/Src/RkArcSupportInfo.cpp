#include "RkArcSupportInfo.h"

namespace RkArcLib {

RkArcSupportInfo::~RkArcSupportInfo() = default;

bool RkArcSupportInfo::CanCreateNew() const { return false; }
bool RkArcSupportInfo::Slot02() const { return false; }
bool RkArcSupportInfo::Slot03() const { return false; }
bool RkArcSupportInfo::Slot04() const { return false; }
bool RkArcSupportInfo::Slot05() const { return false; }
bool RkArcSupportInfo::Slot06() const { return false; }
bool RkArcSupportInfo::Slot07() const { return false; }
bool RkArcSupportInfo::IsCompressionChoice(int choice) const {
  (void)choice;
  return false;
}
bool RkArcSupportInfo::IsLevelValid(int level) const {
  (void)level;
  return false;
}
bool RkArcSupportInfo::Slot10() const { return false; }
bool RkArcSupportInfo::Slot11() const { return false; }
bool RkArcSupportInfo::Slot12() const { return false; }
bool RkArcSupportInfo::Slot13() const { return false; }
bool RkArcSupportInfo::Slot14() const { return false; }
bool RkArcSupportInfo::Slot15() const { return false; }
bool RkArcSupportInfo::Slot16() const { return false; }
bool RkArcSupportInfo::Slot17() const { return false; }
bool RkArcSupportInfo::Slot18() const { return false; }
bool RkArcSupportInfo::Slot19() const { return false; }
bool RkArcSupportInfo::Slot20() const { return false; }
bool RkArcSupportInfo::Slot21() const { return false; }
bool RkArcSupportInfo::Slot22() const { return false; }
bool RkArcSupportInfo::Slot23() const { return false; }
bool RkArcSupportInfo::IsEncryptionChoice(int choice) const {
  (void)choice;
  return false;
}
bool RkArcSupportInfo::Slot25() const { return false; }
bool RkArcSupportInfo::Slot26() const { return false; }
bool RkArcSupportInfo::Slot27() const { return false; }
bool RkArcSupportInfo::Slot28() const { return false; }
bool RkArcSupportInfo::Slot29() const { return false; }
bool RkArcSupportInfo::Slot30() const { return false; }
bool RkArcSupportInfo::Slot31() const { return false; }
bool RkArcSupportInfo::Slot32() const { return false; }
bool RkArcSupportInfo::Slot33() const { return false; }
bool RkArcSupportInfo::Slot34() const { return false; }
bool RkArcSupportInfo::Slot35() const { return false; }
bool RkArcSupportInfo::Slot36() const { return false; }
bool RkArcSupportInfo::Slot37() const { return false; }
bool RkArcSupportInfo::Slot38() const { return false; }
bool RkArcSupportInfo::Slot39() const { return false; }
bool RkArcSupportInfo::Slot40() const { return false; }
bool RkArcSupportInfo::Slot41() const { return false; }
bool RkArcSupportInfo::Slot42() const { return false; }
bool RkArcSupportInfo::Slot43() const { return false; }
bool RkArcSupportInfo::Slot44() const { return false; }
bool RkArcSupportInfo::Slot45() const { return false; }
bool RkArcSupportInfo::Slot46() const { return false; }
bool RkArcSupportInfo::Slot47() const { return false; }
bool RkArcSupportInfo::Slot48() const { return false; }
bool RkArcSupportInfo::Slot49() const { return false; }
bool RkArcSupportInfo::Slot50() const { return false; }
bool RkArcSupportInfo::Slot51() const { return false; }
bool RkArcSupportInfo::Slot52() const { return false; }
bool RkArcSupportInfo::Slot53() const { return false; }
bool RkArcSupportInfo::Slot54() const { return false; }
bool RkArcSupportInfo::Slot55() const { return false; }
bool RkArcSupportInfo::Slot56() const { return false; }
bool RkArcSupportInfo::Slot57() const { return false; }
bool RkArcSupportInfo::Slot58() const { return false; }
bool RkArcSupportInfo::Slot59() const { return false; }
bool RkArcSupportInfo::Slot60() const { return false; }
bool RkArcSupportInfo::Slot61() const { return false; }
bool RkArcSupportInfo::Slot62() const { return false; }
bool RkArcSupportInfo::Slot63() const { return false; }
bool RkArcSupportInfo::Slot64() const { return false; }
bool RkArcSupportInfo::Slot65() const { return false; }
bool RkArcSupportInfo::Slot66() const { return false; }
bool RkArcSupportInfo::Slot67() const { return false; }
bool RkArcSupportInfo::Slot68() const { return false; }
bool RkArcSupportInfo::IsAttributeModeValid(int mode) const {
  (void)mode;
  return false;
}
bool RkArcSupportInfo::Slot70() const { return false; }
bool RkArcSupportInfo::Slot71() const { return false; }
bool RkArcSupportInfo::Slot72() const { return false; }
bool RkArcSupportInfo::Slot73() const { return false; }
bool RkArcSupportInfo::Slot74() const { return false; }
bool RkArcSupportInfo::Slot75() const { return false; }
bool RkArcSupportInfo::Slot76() const { return false; }
bool RkArcSupportInfo::Slot77() const { return false; }
bool RkArcSupportInfo::Slot78() const { return false; }
bool RkArcSupportInfo::Slot79() const { return false; }
bool RkArcSupportInfo::Slot80() const { return false; }
bool RkArcSupportInfo::Slot81() const { return false; }
bool RkArcSupportInfo::Slot82() const { return false; }
bool RkArcSupportInfo::IsSplitModeValid(const int* mode) const {
  (void)mode;
  return false;
}
bool RkArcSupportInfo::Slot84() const { return false; }
bool RkArcSupportInfo::Slot85() const { return false; }
bool RkArcSupportInfo::Slot86() const { return false; }
bool RkArcSupportInfo::Slot87() const { return false; }
bool RkArcSupportInfo::Slot88() const { return false; }
bool RkArcSupportInfo::Slot89() const { return false; }
bool RkArcSupportInfo::Slot90() const { return false; }
bool RkArcSupportInfo::Slot91() const { return false; }
bool RkArcSupportInfo::Slot92() const { return false; }
bool RkArcSupportInfo::Slot93() const { return false; }
bool RkArcSupportInfo::Slot94() const { return false; }

}  // namespace RkArcLib
