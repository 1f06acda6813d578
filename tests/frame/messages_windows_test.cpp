// What only a real message queue shows: messages of windows on the worker's thread, as COM and the shell have
// them.

#include <atomic>

#include "support/tool_guest.h"

namespace {

using Messages = ToolGuest;

std::atomic<int> stopsOfTheWindow;

LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_USER) ++stopsOfTheWindow;
  return message == WM_APP ? 7 : DefWindowProcW(window, message, wParam, lParam);
}

TEST_F(Messages, TheLoopServesWindowsOfItsThreadAndTakesNoStopFromThem) {
  HWND window = nullptr;
  {
    const LoopThread loop([&] {
      window = CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
      SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&Procedure));
    });
    Await(announcement);
    EXPECT_TRUE(gate().WaitIdle(patience()));
    DWORD_PTR answer = 0;
    EXPECT_NE(SendMessageTimeoutW(window, WM_APP, 0, 0, SMTO_NORMAL, 10000, &answer), 0);
    EXPECT_EQ(answer, 7u);
    EXPECT_TRUE(PostMessageW(window, WM_USER, 0, 0));
    Run(on);
  }
  EXPECT_EQ(stopsOfTheWindow, 1);
  EXPECT_EQ(TakeAsked(), (Codes{announcement, list}));
}

}  // namespace
