// The known differences that no other test comes upon, measured.
#include "support/gaps.h"

#include <windows.h>

#include <shlwapi.h>

#include "support/guest.h"
#include "support/hive.h"

namespace {

class PlatformGaps : public GuestTest {};

TEST_F(PlatformGaps, AreAsTheyAreKnown) {
  hive::PutKey("HKCU\\Software\\Classes\\VelomiraGap");
  EXPECT_NE(hive::Has("HKCR\\VelomiraGap"), Lacks(Gap::UserClasses));
  const hive::MachineAssociation associated("velomiragap", true);
  DWORD size = 0xFFFFFFFF;
  const HRESULT answer =
      AssocQueryStringW(ASSOCF_INIT_IGNOREUNKNOWN | ASSOCF_NOTRUNCATE, static_cast<ASSOCSTR>(20),
                        TEXT(".velomiragap"), nullptr, nullptr, &size);
  EXPECT_EQ(answer == E_NOTIMPL, Lacks(Gap::ProgIdQuery));
}

}  // namespace
