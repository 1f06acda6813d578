// A template stub made from nothing: the smallest executable that launchers can be copied from.
// It only returns 0 when started; the program that reports how it was started is main.cpp, on Windows.
#pragma once

#include <cstddef>
#include <vector>

namespace stub {

// What an image has beside its code. The defaults are those of the template.
struct Layout {
  bool wide = true;          // PE32+ for x86-64, otherwise PE32 for x86
  bool resources = true;     // a .rsrc section with RT_RCDATA 1, neutral: the 8-bit text "template"
  bool relocations = false;  // a .reloc section as the last one
};

std::vector<std::byte> MakeTemplateStub(const Layout& layout = {});

}  // namespace stub
