// shell_view show|start DOCUMENT ADDRESS: a guest with mirrored applications as the Windows shell sees it.
// `show` prints, for every shortcut, what the link, its target's version information and its icons are;
// `start` starts each shortcut, and has each registered open and URL command open the document or the
// address. Fields are separated by tabs, in UTF-8.
#include <windows.h>

#include <shellapi.h>
#include <shlobj.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using Text = std::wstring;

[[noreturn]] void Fail(const std::string& what) {
  throw std::runtime_error(what + ", error " + std::to_string(GetLastError()));
}

void Print(std::initializer_list<Text> fields) {
  Text line;
  for (const Text& field : fields) line += (line.empty() ? L"" : L"\t") + field;
  char bytes[4096];
  const int length = WideCharToMultiByte(CP_UTF8, 0, line.data(), static_cast<int>(line.size()), bytes,
                                         sizeof bytes, nullptr, nullptr);
  std::printf("%.*s\n", length, bytes);
  std::fflush(stdout);
}

template <class Interface>
struct ReleaseOf {
  void operator()(Interface* object) const { object->Release(); }
};
template <class Interface>
using Owned = std::unique_ptr<Interface, ReleaseOf<Interface>>;

// The paths of the files that match in a folder of the user's, in the order of their names.
std::set<Text> Files(int csidl, const Text& below, const wchar_t* pattern) {
  wchar_t start[MAX_PATH];
  if (SHGetFolderPathW(nullptr, csidl, nullptr, 0, start) != S_OK) Fail("a special folder is missing");
  const Text folder = start + below;
  std::set<Text> found;
  WIN32_FIND_DATAW entry;
  const HANDLE find = FindFirstFileW((folder + pattern).c_str(), &entry);
  if (find == INVALID_HANDLE_VALUE) Fail("nothing is mirrored");
  do {
    found.insert(folder + entry.cFileName);
  } while (FindNextFileW(find, &entry));
  FindClose(find);
  return found;
}
std::set<Text> Shortcuts() {
  return Files(CSIDL_PROGRAMS, L"\\Tessarine Shared Applications\\", L"*.lnk");
}
std::set<Text> Launchers() {
  return Files(CSIDL_APPDATA, L"\\Tessarine\\Shared Applications\\", L"*.exe");
}
Text NameOf(const Text& path) {
  return path.substr(path.rfind(L'\\') + 1);
}

void ShowLink(const Text& file) {
  void* made = nullptr;
  if (FAILED(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW, &made))) {
    Fail("no shell link");
  }
  const Owned<IShellLinkW> link(static_cast<IShellLinkW*>(made));
  if (FAILED(link->QueryInterface(IID_IPersistFile, &made))) Fail("no link file");
  const Owned<IPersistFile> persist(static_cast<IPersistFile*>(made));
  if (FAILED(persist->Load(file.c_str(), STGM_READ))) Fail("a link cannot be loaded");
  wchar_t target[MAX_PATH]{}, description[MAX_PATH]{}, arguments[MAX_PATH]{}, folder[MAX_PATH]{},
      icon[MAX_PATH]{};
  int iconIndex = 0;
  link->GetPath(target, MAX_PATH, nullptr, 0);
  link->GetDescription(description, MAX_PATH);
  link->GetArguments(arguments, MAX_PATH);
  link->GetWorkingDirectory(folder, MAX_PATH);
  link->GetIconLocation(icon, MAX_PATH, &iconIndex);
  Print({L"link", NameOf(file), target, description,
         Text(arguments) + folder + icon + std::to_wstring(iconIndex)});
}

void ShowVersion(const Text& file) {
  DWORD ignored = 0;
  std::vector<std::byte> block(GetFileVersionInfoSizeW(file.c_str(), &ignored));
  const auto size = static_cast<DWORD>(block.size());
  if (size == 0 || !GetFileVersionInfoW(file.c_str(), 0, size, block.data())) Fail("no version information");
  void* data = nullptr;
  UINT length = 0;
  if (!VerQueryValueW(block.data(), L"\\", &data, &length)) Fail("no fixed version information");
  const auto* fixed = static_cast<const VS_FIXEDFILEINFO*>(data);
  Text numbers;
  for (const DWORD half : {fixed->dwFileVersionMS, fixed->dwFileVersionLS}) {
    numbers += std::to_wstring(half >> 16) + L"." + std::to_wstring(half & 0xFFFF) + L".";
  }
  numbers += L" " + std::to_wstring(fixed->dwFileFlags) + L" " + std::to_wstring(fixed->dwFileType);
  if (!VerQueryValueW(block.data(), L"\\VarFileInfo\\Translation", &data, &length)) Fail("no translation");
  wchar_t table[40];
  swprintf(table, 40, L"\\StringFileInfo\\%04x%04x\\", static_cast<const WORD*>(data)[0],
           static_cast<const WORD*>(data)[1]);
  const auto text = [&](const wchar_t* key) {
    if (!VerQueryValueW(block.data(), (table + Text(key)).c_str(), &data, &length)) return Text(L"?");
    return Text(static_cast<const wchar_t*>(data));
  };
  Print({L"version", NameOf(file), text(L"FileDescription"), numbers, text(L"FileVersion"),
         text(L"CompanyName"), text(L"ProductName"), text(L"Comments"), text(L"SpecialBuild")});
}

std::uint32_t Crc32(const std::vector<std::uint32_t>& pixels) {
  std::uint32_t crc = ~0U;
  for (const std::uint32_t pixel : pixels) {
    crc ^= pixel;
    for (int bit = 0; bit < 32; ++bit) crc = (crc >> 1) ^ (crc & 1 ? 0xEDB88320U : 0);
  }
  return ~crc;
}

// The size of an icon's own image and the checksum of its pixels, from the lowest row up.
Text IconText(HICON icon) {
  ICONINFO info;
  if (!GetIconInfo(icon, &info)) Fail("GetIconInfo");
  BITMAP bitmap;
  GetObjectW(info.hbmColor, sizeof bitmap, &bitmap);
  BITMAPINFO wanted{};
  wanted.bmiHeader = {sizeof wanted.bmiHeader, bitmap.bmWidth, bitmap.bmHeight, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
  std::vector<std::uint32_t> pixels(static_cast<std::size_t>(bitmap.bmWidth * bitmap.bmHeight));
  const HDC screen = GetDC(nullptr);
  GetDIBits(screen, info.hbmColor, 0, static_cast<UINT>(bitmap.bmHeight), pixels.data(), &wanted,
            DIB_RGB_COLORS);
  ReleaseDC(nullptr, screen);
  DeleteObject(info.hbmColor);
  DeleteObject(info.hbmMask);
  wchar_t text[40];
  swprintf(text, 40, L"%ldx%ld:%08x", bitmap.bmWidth, bitmap.bmHeight, Crc32(pixels));
  return text;
}

// The number of icon groups, and the image that the shell gets when it asks for each size.
void ShowIcons(const Text& file) {
  Text images;
  for (const int size : {16, 32, 48, 128, 256}) {
    HICON icon = nullptr;
    if (PrivateExtractIconsW(file.c_str(), 0, size, size, &icon, nullptr, 1, 0) != 1) Fail("no icon");
    images += (images.empty() ? L"" : L" ") + IconText(icon);
    DestroyIcon(icon);
  }
  Print({L"icons", NameOf(file), std::to_wstring(ExtractIconExW(file.c_str(), -1, nullptr, nullptr, 0)),
         images});
}

// Starts through the shell and waits for the end where the shell tells it; with a class, `file` is what its
// open command gets.
void Start(const Text& file, HKEY classKey = nullptr) {
  SHELLEXECUTEINFOW call{};
  call.cbSize = sizeof call;
  call.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_FLAG_NO_UI | SEE_MASK_NOASYNC |
               (classKey ? static_cast<ULONG>(SEE_MASK_CLASSKEY) : 0);
  call.lpVerb = L"open";
  call.lpFile = file.c_str();
  call.hkeyClass = classKey;
  call.nShow = SW_HIDE;
  if (!ShellExecuteExW(&call)) Print({L"refused", NameOf(file), std::to_wstring(GetLastError())});
  if (!call.hProcess) return;
  DWORD code = ~0U;
  WaitForSingleObject(call.hProcess, 30000);
  if (!GetExitCodeProcess(call.hProcess, &code) || code != 0)
    Fail("a launcher ended with " + std::to_string(code));
  CloseHandle(call.hProcess);
}

// Every class below `parent` that has an open command and is a launcher's, by its name.
void StartClasses(const Text& parent, const Text& begin, const Text& end, const Text& target) {
  HKEY parentKey;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, parent.c_str(), 0, KEY_READ, &parentKey) != 0) Fail("no classes");
  wchar_t name[256];
  for (DWORD i = 0; RegEnumKeyW(parentKey, i, name, 256) == 0; ++i) {
    const Text text = name;
    if (!text.starts_with(begin) || !text.ends_with(end)) continue;
    HKEY key;
    if (RegOpenKeyExW(parentKey, name, 0, KEY_READ, &key) != 0) Fail("a class cannot be opened");
    Start(target, key);
    RegCloseKey(key);
  }
  RegCloseKey(parentKey);
}

int Run(int count, wchar_t** arguments) {
  const Text command = count > 1 ? arguments[1] : L"";
  if (command == L"show") {
    for (const Text& shortcut : Shortcuts()) ShowLink(shortcut);
    for (const Text& launcher : Launchers()) ShowVersion(launcher);
    for (const Text& launcher : Launchers()) ShowIcons(launcher);
    return 0;
  }
  if (command == L"start" && count == 4) {
    for (const Text& shortcut : Shortcuts()) Start(shortcut);
    StartClasses(L"Software\\Classes\\Applications", L"", L" (Mac).exe", arguments[2]);
    StartClasses(L"Software\\Classes", L"Tsrn.Url.", L" (Mac)", arguments[3]);
    return 0;
  }
  std::fputs("usage: shell_view show | start DOCUMENT ADDRESS\n", stderr);
  return 2;
}

}  // namespace

int main() {
  if (FAILED(CoInitialize(nullptr))) return 1;
  int count = 0;
  wchar_t** const arguments = CommandLineToArgvW(GetCommandLineW(), &count);
  int status = 1;
  try {
    status = Run(count, arguments);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "shell_view: %s\n", failure.what());
  }
  CoUninitialize();
  return status;
}
