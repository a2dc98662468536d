#include "RkArcTypeSupportInfo.h"

#include <array>

#include "RkArchiveType.h"

namespace RkArcLib {

std::shared_ptr<const RkArcSupportInfo> RkArcTypeSupportInfo::ForType(int type) {
  static const auto infos = [] {
    std::array<std::shared_ptr<const RkArcSupportInfo>, kArcTypeLast + 1> all;
    all[0] = std::make_shared<const RkArcSupportInfo>();
    for (int t = kArcTypeFirst; t <= kArcTypeLast; ++t)
      all[t] = std::make_shared<const RkArcTypeSupportInfo>(t);
    return all;
  }();
  return (type >= kArcTypeFirst && type <= kArcTypeLast) ? infos[type] : infos[0];
}

bool RkArcTypeSupportInfo::Is(std::initializer_list<int> types) const {
  for (int t : types) {
    if (t == type_) return true;
  }
  return false;
}

bool RkArcTypeSupportInfo::CanCreateNew() const { return Is({kArcTypeZip, kArcTypeLha, kArcTypeUU}); }
bool RkArcTypeSupportInfo::Slot02() const { return Is({kArcTypeZip, kArcTypeLha}); }
bool RkArcTypeSupportInfo::Slot03() const { return Is({kArcTypeZip, kArcTypeLha}); }
bool RkArcTypeSupportInfo::Slot04() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot05() const { return Is({kArcTypeZip, kArcTypeLha}); }
bool RkArcTypeSupportInfo::Slot06() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot07() const { return Is({kArcTypeZip, kArcTypeLha}); }
bool RkArcTypeSupportInfo::Slot10() const { return Is({kArcTypeZip, kArcTypeLha}); }
bool RkArcTypeSupportInfo::Slot11() const { return Is({kArcTypeZip, kArcTypeLha}); }
bool RkArcTypeSupportInfo::Slot12() const { return Is({kArcTypeZip, kArcTypeLha}); }
bool RkArcTypeSupportInfo::Slot13() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot14() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot15() const { return Is({kArcTypeZip, kArcTypeLha}); }
bool RkArcTypeSupportInfo::Slot16() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot17() const { return Is({kArcTypeZip, kArcTypeLha}); }
bool RkArcTypeSupportInfo::Slot18() const { return Is({kArcTypeZip, kArcTypeLha}); }
bool RkArcTypeSupportInfo::Slot19() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot20() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot21() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot22() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot23() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot25() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot26() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot27() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot28() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot29() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot30() const { return Is({kArcTypeZip, kArcTypeLha}); }
bool RkArcTypeSupportInfo::Slot31() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot32() const { return Is({kArcTypeZip, kArcTypeLha}); }
bool RkArcTypeSupportInfo::Slot33() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot34() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot35() const { return Is({kArcTypeZip, kArcTypeLha}); }
bool RkArcTypeSupportInfo::Slot36() const { return Is({kArcTypeZip, kArcTypeLha}); }
bool RkArcTypeSupportInfo::Slot37() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot38() const { return Is({kArcTypeZip, kArcTypeLha}); }
bool RkArcTypeSupportInfo::Slot39() const { return Is({kArcTypeZip, kArcTypeLha}); }
bool RkArcTypeSupportInfo::Slot40() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot41() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot42() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot43() const { return true; }
bool RkArcTypeSupportInfo::Slot44() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot45() const { return true; }
bool RkArcTypeSupportInfo::Slot46() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot47() const { return true; }
bool RkArcTypeSupportInfo::Slot48() const { return true; }
bool RkArcTypeSupportInfo::Slot49() const { return true; }
bool RkArcTypeSupportInfo::Slot50() const { return true; }
bool RkArcTypeSupportInfo::Slot51() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot52() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot53() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot54() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot55() const { return true; }
bool RkArcTypeSupportInfo::Slot56() const { return true; }
bool RkArcTypeSupportInfo::Slot57() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot58() const { return true; }
bool RkArcTypeSupportInfo::Slot59() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot60() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot61() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot62() const { return Is({kArcTypeTar}); }
bool RkArcTypeSupportInfo::Slot63() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot64() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot65() const { return true; }
bool RkArcTypeSupportInfo::Slot66() const { return Is({kArcTypeZip, kArcType7z, kArcTypeRar}); }
bool RkArcTypeSupportInfo::Slot67() const { return true; }
bool RkArcTypeSupportInfo::Slot68() const {
  return Is({kArcTypeZip, kArcType7z, kArcTypeRar, kArcTypeLha, kArcTypeCab});
}
bool RkArcTypeSupportInfo::Slot70() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot71() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot72() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot73() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot74() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot75() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot76() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot77() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot78() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot79() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot80() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot81() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot82() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot84() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot85() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot86() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot87() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot88() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot89() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot90() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot91() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot92() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot93() const { return Is({kArcTypeZip}); }
bool RkArcTypeSupportInfo::Slot94() const { return Is({kArcTypeZip}); }

bool RkArcTypeSupportInfo::IsCompressionChoice(int choice) const {
  if (Is({kArcTypeZip})) return choice >= 0 && choice <= 12;
  if (Is({kArcTypeLha})) return choice >= 0 && choice <= 2;
  return Is({kArcTypeUU}) && choice == 1;
}

bool RkArcTypeSupportInfo::IsLevelValid(int level) const {
  return Is({kArcTypeZip, kArcTypeLha}) && level < 10;
}

bool RkArcTypeSupportInfo::IsEncryptionChoice(int choice) const {
  return Is({kArcTypeZip}) && (choice == 0 || choice == 1 || choice == 3 || choice == 5 || choice == 6);
}

bool RkArcTypeSupportInfo::IsAttributeModeValid(int mode) const {
  if (Is({kArcTypeZip})) return true;
  return Is({kArcType7z, kArcTypeRar, kArcTypeLha, kArcTypeCab}) && (mode == 0 || mode == 1);
}

bool RkArcTypeSupportInfo::IsSplitModeValid(const int* mode) const {
  return Is({kArcTypeZip}) && mode && (*mode == 1 || *mode == 3 || *mode == 5 || *mode == 6);
}

}  // namespace RkArcLib
