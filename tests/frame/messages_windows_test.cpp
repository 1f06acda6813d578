// What only a real message queue shows: messages of windows, and a stop message that a command of the module
// has looked at and left in the queue, as COM and the shell may do.
#include <windows.h>

#include <atomic>

#include "support/tool_guest.h"

namespace {

using Messages = ToolGuest;

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

TEST_F(Messages, AStopThatACommandHasSeenAndLeftEndsTheLoop) {
  void** const slot = ImportSlot(GetModuleHandleW(L"velomira.dll"), "RegOpenCurrentUser");
  ASSERT_NE(slot, nullptr);
  DWORD protection = 0;
  ASSERT_TRUE(VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &protection));
  *slot = reinterpret_cast<void*>(LookAtTheQueueFirst);
  StartAndAwaitAnnouncement();
  gate().Push(off);
  called.get_future().wait();
  EXPECT_EQ(module->Stop(), 0);
}

std::atomic<int> stopsOfTheWindow;

LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_USER) ++stopsOfTheWindow;
  return message == WM_APP ? 7 : DefWindowProcW(window, message, wParam, lParam);
}

TEST_F(Messages, TheLoopServesWindowsOfItsThreadAndTakesNoStopFromThem) {
  HWND window = nullptr;
  LoopThread loop([&] {
    window = CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
    SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&Procedure));
  });
  Await(announcement);
  ASSERT_TRUE(gate().WaitIdle(patience));
  DWORD_PTR answer = 0;
  EXPECT_NE(SendMessageTimeoutW(window, WM_APP, 0, 0, SMTO_NORMAL, 10000, &answer), 0);
  EXPECT_EQ(answer, 7u);
  EXPECT_TRUE(PostMessageW(window, WM_USER, 0, 0));
  while (stopsOfTheWindow == 0) Sleep(1);
  Run(on);
  EXPECT_EQ(TakeAsked(), (Codes{announcement, list}));
}

}  // namespace
