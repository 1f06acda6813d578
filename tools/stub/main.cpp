// The template stub as a real program: it reports what it was asked to open and whose launcher it is, which
// its own resources say. Started as `"<path>"` or `/url "<address>"`; the command line is never a shell's
// business.
#include <windows.h>

#include <shellapi.h>

#include <string>

namespace {

constexpr WORD bundleIdResource = 260;
constexpr WORD nameResource = 259;

// The text of a resource of this program; empty in the template itself.
std::wstring OwnText(WORD id) {
  const HRSRC found = FindResourceExW(nullptr, RT_RCDATA, MAKEINTRESOURCEW(id), 0);
  const HGLOBAL loaded = found ? LoadResource(nullptr, found) : nullptr;
  const auto* text = loaded ? static_cast<const wchar_t*>(LockResource(loaded)) : nullptr;
  if (!text) return {};
  const std::wstring whole(text, SizeofResource(nullptr, found) / sizeof(wchar_t));
  return whole.substr(0, whole.find(L'\0'));
}

std::string ToUtf8(const std::wstring& text) {
  const int length = static_cast<int>(text.size());
  std::string bytes(static_cast<std::size_t>(
                        WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr)),
                    '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), length, bytes.data(), static_cast<int>(bytes.size()), nullptr,
                      nullptr);
  return bytes;
}

bool AppendLine(const wchar_t* file, const std::wstring& line) {
  const HANDLE handle = CreateFileW(file, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  const std::string bytes = ToUtf8(line) + "\n";
  DWORD written = 0;
  const bool done = WriteFile(handle, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
                    written == bytes.size();
  CloseHandle(handle);
  return done;
}

}  // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
  int count = 0;
  wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
  if (!arguments) return 2;
  const bool url = count > 1 && std::wstring(arguments[1]) == L"/url";
  const int target = url ? 2 : 1;
  const std::wstring opened = count > target ? arguments[target] : L"";
  LocalFree(arguments);

  const std::wstring name = OwnText(nameResource);
  const std::wstring line =
      OwnText(bundleIdResource) + L"\t" + name + (url ? L"\turl\t" : L"\topen\t") + opened;
  wchar_t report[MAX_PATH]{};
  if (GetEnvironmentVariableW(L"VELOMIRA_STUB_REPORT", report, MAX_PATH) != 0) {
    return AppendLine(report, line) ? 0 : 1;
  }
  MessageBoxW(nullptr, opened.c_str(), name.empty() ? L"vel_micro_app" : name.c_str(), MB_OK);
  return 0;
}
