// Events, waits, threads, message queues and text conversion, as every build must have them.
// Whatever touches a message queue runs on a thread of its own, because a thread keeps its queue for life.
#include <gtest/gtest.h>
#include <process.h>
#include <windows.h>

#include <atomic>
#include <functional>
#include <string>
#include <vector>

namespace {

using Text = std::basic_string<WCHAR>;

constexpr bool manualReset = true, autoReset = false;

HANDLE NewEvent(bool manual, bool signalled = false) {
  return CreateEventW(nullptr, manual, signalled, nullptr);
}

struct Started {
  HANDLE handle;
  unsigned id;
  void Join() const {
    EXPECT_EQ(WaitForSingleObject(handle, INFINITE), WAIT_OBJECT_0);
    EXPECT_TRUE(CloseHandle(handle));
  }
};

unsigned __stdcall RunBody(void* body) {
  (*static_cast<const std::function<void()>*>(body))();
  return 0;
}

// `body` must outlive the thread.
Started Start(const std::function<void()>& body) {
  Started started{};
  const auto handle =
      _beginthreadex(nullptr, 0, RunBody, const_cast<std::function<void()>*>(&body), 0, &started.id);
  started.handle = reinterpret_cast<HANDLE>(handle);
  return started;
}

void OnOwnThread(const std::function<void()>& body) {
  Start(body).Join();
}

// The numbers of all messages within the range, removed.
std::vector<int> Take(UINT first = 0, UINT last = 0) {
  std::vector<int> taken;
  MSG message{};
  while (PeekMessageW(&message, nullptr, first, last, PM_REMOVE))
    taken.push_back(static_cast<int>(message.message));
  return taken;
}

void CreateQueue() {
  MSG message{};
  PeekMessageW(&message, nullptr, WM_USER, WM_USER, PM_NOREMOVE);
}

BOOL PostHere(UINT message) {
  return PostThreadMessageW(GetCurrentThreadId(), message, 0, 0);
}

DWORD MessageWait(DWORD mask = QS_ALLINPUT, std::vector<HANDLE> handles = {}, DWORD flags = 0) {
  return MsgWaitForMultipleObjectsEx(static_cast<DWORD>(handles.size()), handles.data(), 0, mask, flags);
}

// An object of a thread that notes its end.
struct Leaver {
  std::atomic<bool>* gone = nullptr;
  ~Leaver() {
    if (gone != nullptr) *gone = true;
  }
};
thread_local Leaver leaver;

}  // namespace

TEST(KernelEvents, AWaitTakesTheSignalOfAnAutoResetEventOnly) {
  for (const bool manual : {manualReset, autoReset}) {
    const HANDLE event = NewEvent(manual);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(SetEvent(event));
    EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(event, 0), manual ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
    EXPECT_TRUE(SetEvent(event));
    EXPECT_TRUE(ResetEvent(event));
    EXPECT_EQ(WaitForSingleObject(event, 1), WAIT_TIMEOUT);
    EXPECT_TRUE(CloseHandle(event));
  }
}

TEST(KernelThreads, AHandleIsSignalledWhenTheThreadAndItsObjectsAreGone) {
  std::atomic<bool> gone = false;
  DWORD id = 0;
  const HANDLE mayEnd = NewEvent(manualReset);
  const std::function<void()> body = [&] {
    leaver.gone = &gone;
    id = GetCurrentThreadId();
    WaitForSingleObject(mayEnd, INFINITE);
  };
  const Started thread = Start(body);
  EXPECT_EQ(WaitForSingleObject(thread.handle, 0), WAIT_TIMEOUT);
  EXPECT_TRUE(SetEvent(mayEnd));
  thread.Join();
  EXPECT_TRUE(gone);
  EXPECT_EQ(id, thread.id);
  EXPECT_NE(id, GetCurrentThreadId());
  EXPECT_TRUE(CloseHandle(mayEnd));
}

TEST(KernelMessages, AThreadTakesPostsFromItsFirstLookToItsEnd) {
  const HANDLE looked = NewEvent(autoReset), mayLook = NewEvent(autoReset), mayEnd = NewEvent(autoReset);
  const std::function<void()> body = [&] {
    WaitForSingleObject(mayLook, INFINITE);
    CreateQueue();
    SetEvent(looked);
    WaitForSingleObject(mayEnd, INFINITE);
    EXPECT_EQ(Take(), std::vector<int>{WM_USER});
  };
  const Started thread = Start(body);
  EXPECT_FALSE(PostThreadMessageW(thread.id, WM_USER, 0, 0));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_THREAD_ID);
  SetEvent(mayLook);
  WaitForSingleObject(looked, INFINITE);
  EXPECT_TRUE(PostThreadMessageW(thread.id, WM_USER, 0, 0));
  SetEvent(mayEnd);
  WaitForSingleObject(thread.handle, INFINITE);
  EXPECT_FALSE(PostThreadMessageW(thread.id, WM_USER, 0, 0));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_THREAD_ID);
  thread.Join();
  for (const HANDLE event : {looked, mayLook, mayEnd}) EXPECT_TRUE(CloseHandle(event));
}

TEST(KernelMessages, MessagesComeInOrderWithinTheRangeAndKeepTheirParameters) {
  OnOwnThread([] {
    CreateQueue();
    for (const UINT message : {WM_USER + 3, WM_USER, WM_USER + 2, WM_USER}) EXPECT_TRUE(PostHere(message));
    EXPECT_TRUE(PostThreadMessageW(GetCurrentThreadId(), WM_USER + 9, 7, -8));
    MSG message{};
    EXPECT_TRUE(PeekMessageW(&message, nullptr, WM_USER + 9, WM_USER + 9, PM_NOREMOVE));
    EXPECT_TRUE(PeekMessageW(&message, nullptr, WM_USER + 9, WM_USER + 9, PM_REMOVE));
    EXPECT_EQ(message.hwnd, nullptr);
    EXPECT_EQ(message.wParam, 7u);
    EXPECT_EQ(message.lParam, -8);
    EXPECT_EQ(DispatchMessageW(&message), 0);
    EXPECT_EQ(Take(WM_USER, WM_USER), (std::vector<int>{WM_USER, WM_USER}));
    EXPECT_EQ(Take(), (std::vector<int>{WM_USER + 3, WM_USER + 2}));
    EXPECT_EQ(Take(), std::vector<int>{});
  });
}

TEST(KernelMessages, AQuitComesAfterTheOtherMessagesAndOnce) {
  OnOwnThread([] {
    CreateQueue();
    PostQuitMessage(5);
    EXPECT_TRUE(PostHere(WM_USER));
    EXPECT_EQ(MessageWait(), WAIT_OBJECT_0);
    MSG message{};
    EXPECT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(message.message, WM_USER);
    EXPECT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE));
    EXPECT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(message.message, WM_QUIT);
    EXPECT_EQ(message.wParam, 5u);
    EXPECT_FALSE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
  });
}

TEST(KernelMessages, OnlyInputThatCameSinceTheLastLookEndsAWait) {
  OnOwnThread([] {
    CreateQueue();
    EXPECT_EQ(MessageWait(), WAIT_TIMEOUT);
    EXPECT_TRUE(PostHere(WM_USER));
    EXPECT_EQ(MessageWait(QS_ALLINPUT & ~QS_POSTMESSAGE), WAIT_TIMEOUT);
    EXPECT_EQ(MessageWait(), WAIT_OBJECT_0);
    EXPECT_EQ(MessageWait(), WAIT_OBJECT_0) << "a wait is no look";
    CreateQueue();
    EXPECT_EQ(MessageWait(), WAIT_TIMEOUT) << "seen without removal";
    EXPECT_EQ(MessageWait(QS_ALLINPUT, {}, MWMO_INPUTAVAILABLE), WAIT_OBJECT_0) << "seen, but still there";
    EXPECT_EQ(MessageWait(QS_ALLINPUT & ~QS_POSTMESSAGE, {}, MWMO_INPUTAVAILABLE), WAIT_TIMEOUT);
    EXPECT_TRUE(PostHere(WM_USER + 1));
    EXPECT_EQ(MessageWait(), WAIT_OBJECT_0);
    MSG message{};
    EXPECT_TRUE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
    EXPECT_EQ(MessageWait(), WAIT_TIMEOUT) << "the second message stays, but the look was after it";
    EXPECT_EQ(Take(), std::vector<int>{WM_USER + 1});
    EXPECT_EQ(MessageWait(QS_ALLINPUT, {}, MWMO_INPUTAVAILABLE), WAIT_TIMEOUT) << "nothing is left";
  });
}

TEST(KernelMessages, AWaitForObjectsAndMessagesIsEndedByEither) {
  const HANDLE signalled = NewEvent(manualReset, true), silent = NewEvent(manualReset);
  OnOwnThread([&] {
    CreateQueue();
    EXPECT_EQ(MessageWait(QS_ALLINPUT, {silent, signalled}), WAIT_OBJECT_0 + 1);
    EXPECT_TRUE(PostHere(WM_USER));
    EXPECT_EQ(MessageWait(QS_ALLINPUT, {silent, signalled}), WAIT_OBJECT_0 + 1) << "objects come first";
    EXPECT_EQ(MessageWait(QS_ALLINPUT, {silent}), WAIT_OBJECT_0 + 1);
  });
  for (const HANDLE event : {signalled, silent}) EXPECT_TRUE(CloseHandle(event));
}

TEST(KernelText, Utf8AndUtf16ConvertBothWays) {
  const struct {
    std::string utf8;
    Text utf16;
    bool wellFormed;
    std::string back;  // what the wide text gives again
  } cases[] = {
      {"plain", TEXT("plain"), true, "plain"},
      {"na\xC3\xAFve \xE2\x82\xAC \xF0\x9F\x8D\x8E", TEXT("na\u00EFve \u20AC \U0001F34E"), true,
       "na\xC3\xAFve \xE2\x82\xAC \xF0\x9F\x8D\x8E"},
      {std::string("a\0b", 3), Text(TEXT("a\0b"), 3), true, std::string("a\0b", 3)},
      {"a\xFFz", TEXT("a\uFFFDz"), false, "a\xEF\xBF\xBDz"},
      {"a\x80\xE2\x82", TEXT("a\uFFFD\uFFFD"), false, "a\xEF\xBF\xBD\xEF\xBF\xBD"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.utf8);
    const int length = static_cast<int>(one.utf8.size());
    const int size = MultiByteToWideChar(CP_UTF8, 0, one.utf8.data(), length, nullptr, 0);
    Text wide(static_cast<std::size_t>(size), WCHAR{});
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, one.utf8.data(), length, wide.data(), size), size);
    EXPECT_TRUE(wide == one.utf16);
    EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, one.utf8.data(), length, nullptr, 0),
              one.wellFormed ? size : 0);
    EXPECT_TRUE(one.wellFormed || GetLastError() == ERROR_NO_UNICODE_TRANSLATION);

    const int backSize = WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, nullptr, 0, nullptr, nullptr);
    std::string back(static_cast<std::size_t>(backSize), '\0');
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, back.data(), backSize, nullptr, nullptr),
              backSize);
    EXPECT_EQ(back, one.back);
  }
}
