// Wide text and its conversion. WideString holds UTF-16 on every build; write literals with TEXT("...").
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

using WideString = std::basic_string<WCHAR>;
using WideView = std::basic_string_view<WCHAR>;

// UTF-8 to UTF-16. Ill-formed bytes become U+FFFD, a conversion that fails gives the empty string. A NUL
// inside `text` is converted like any other character. The thread's last error is the same afterwards.
WideString Utf8ToWide(std::string_view text);

// UTF-16 to UTF-8; any failure gives the empty string. The thread's last error is the same afterwards.
std::string WideToUtf8(WideView text);

// `text` with A to Z in lower case.
WideString AsciiLower(WideString text);
