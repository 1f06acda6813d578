// Threads and message queues, as every build must have them. Whatever touches a queue runs on a thread of its
// own, because a thread keeps its queue for life.
#include <gtest/gtest.h>
#include <process.h>
#include <windows.h>

#include <atomic>
#include <thread>

namespace {

// The number of the next message, 0 when there is none.
UINT Look(UINT remove, UINT first = 0, UINT last = 0) {
  MSG message{};
  return PeekMessageW(&message, nullptr, first, last, remove) ? message.message : 0;
}

// Whether a message ends a wait.
bool Wakes(DWORD flags = 0, DWORD mask = QS_ALLINPUT) {
  return MsgWaitForMultipleObjectsEx(0, nullptr, 0, mask, flags) == WAIT_OBJECT_0;
}

std::atomic<bool> objectGone;
HANDLE mayLook, looked, mayEnd;

unsigned __stdcall LookTwice(void*) {
  struct Object {
    ~Object() { objectGone = true; }
  };
  thread_local const Object object;
  WaitForSingleObject(mayLook, INFINITE);
  Look(PM_NOREMOVE);
  SetEvent(looked);
  WaitForSingleObject(mayEnd, INFINITE);
  EXPECT_EQ(Look(PM_REMOVE), WM_USER);
  return 0;
}

TEST(Kernel, AThreadTakesPostsFromItsFirstLookToItsEndWhichComesAfterThatOfItsObjects) {
  for (HANDLE* event : {&mayLook, &looked, &mayEnd}) *event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  unsigned id = 0;
  const auto thread = reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, LookTwice, nullptr, 0, &id));
  EXPECT_FALSE(PostThreadMessageW(id, WM_USER, 0, 0));
  SetEvent(mayLook);
  EXPECT_EQ(WaitForSingleObject(looked, INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(looked, 0), WAIT_TIMEOUT);  // the wait that it ended has reset it
  EXPECT_TRUE(PostThreadMessageW(id, WM_USER, 0, 0));
  SetEvent(mayEnd);
  EXPECT_EQ(WaitForSingleObject(thread, INFINITE), WAIT_OBJECT_0);
  EXPECT_TRUE(objectGone);
  EXPECT_FALSE(PostThreadMessageW(id, WM_USER, 0, 0));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_THREAD_ID});
  for (const HANDLE handle : {mayLook, looked, mayEnd, thread}) EXPECT_TRUE(CloseHandle(handle));
}

TEST(Kernel, MessagesComeInOrderAndAQuitLast) {
  const HANDLE signalled = CreateEventW(nullptr, TRUE, TRUE, nullptr);
  const auto post = [](UINT message) {
    EXPECT_TRUE(PostThreadMessageW(GetCurrentThreadId(), message, 0, 0));
  };
  std::thread([&] {
    Look(PM_NOREMOVE);
    EXPECT_FALSE(Wakes());
    PostQuitMessage(5);
    for (const UINT message : {WM_USER + 1, WM_USER, WM_USER + 2}) post(message);
    EXPECT_FALSE(Wakes(0, QS_ALLINPUT & ~QS_POSTMESSAGE));
    EXPECT_TRUE(Wakes() && Wakes()) << "a wait is no look";
    EXPECT_EQ(MsgWaitForMultipleObjectsEx(1, &signalled, 0, QS_ALLINPUT, 0), WAIT_OBJECT_0);
    EXPECT_EQ(Look(PM_NOREMOVE), WM_USER + 1);
    EXPECT_FALSE(Wakes()) << "seen";
    EXPECT_TRUE(Wakes(MWMO_INPUTAVAILABLE)) << "seen, but still there";
    post(WM_USER + 3);
    EXPECT_TRUE(Wakes()) << "something new";
    EXPECT_EQ(Look(PM_REMOVE, WM_USER, WM_USER), WM_USER);
    for (const UINT next : {WM_USER + 1, WM_USER + 2, WM_USER + 3}) EXPECT_EQ(Look(PM_REMOVE), next);
    EXPECT_EQ(Look(PM_NOREMOVE), UINT{WM_QUIT});
    EXPECT_TRUE(Wakes(MWMO_INPUTAVAILABLE));
    EXPECT_EQ(Look(PM_REMOVE), UINT{WM_QUIT});
    EXPECT_EQ(Look(PM_REMOVE), 0u);
    EXPECT_FALSE(Wakes(MWMO_INPUTAVAILABLE));
  }).join();
  EXPECT_TRUE(CloseHandle(signalled));
}

}  // namespace
