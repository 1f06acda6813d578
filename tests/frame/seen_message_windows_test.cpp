// A stop message that a command of the DLL has looked at and left in the queue, as COM and the shell may do:
// it still ends the loop. One of the DLL's imports is the test's own for that.
#include <windows.h>

#include <future>

#include "frame/worker_guest.h"
#include "host/system.h"

namespace {

using SeenMessage = WorkerGuest;

// The place in `module` that holds the address of what it imports as `function`; null when it does not.
void** ImportSlot(HMODULE module, const char* function) {
  auto* const image = reinterpret_cast<std::byte*>(module);
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(image + dos->e_lfanew);
  const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  const auto* library = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(image + directory.VirtualAddress);
  for (; library->Name != 0; ++library) {
    const auto* name = reinterpret_cast<const IMAGE_THUNK_DATA*>(image + library->OriginalFirstThunk);
    auto* slot = reinterpret_cast<void**>(image + library->FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++slot) {
      if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) continue;
      const auto* import = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(image + name->u1.AddressOfData);
      if (std::string(import->Name) == function) return slot;
    }
  }
  return nullptr;
}

std::promise<void> called;

LSTATUS WINAPI LookAtTheQueueFirst(REGSAM access, PHKEY hive) {
  static bool first = true;
  if (std::exchange(first, false)) {
    called.set_value();
    MSG message;
    while (!PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE)) Sleep(1);
  }
  return RegOpenCurrentUser(access, hive);
}

TEST_F(SeenMessage, AStopThatACommandHasSeenAndLeftEndsTheLoop) {
  const auto module = host::LoadModule(host::DefaultModule());
  void** const slot = ImportSlot(GetModuleHandleW(L"velomira.dll"), "RegOpenCurrentUser");
  ASSERT_NE(slot, nullptr);
  DWORD protection = 0;
  ASSERT_TRUE(VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &protection));
  *slot = reinterpret_cast<void*>(LookAtTheQueueFirst);
  ASSERT_EQ(module->Start(), 0);
  Await(CmdSharingState);
  gate().Push(host::SharingCommand(false));
  called.get_future().wait();
  EXPECT_EQ(module->Stop(), 0);
}

}  // namespace
