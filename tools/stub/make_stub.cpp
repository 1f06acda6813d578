// make_stub <output.exe>: writes the generated template stub. On Windows the real program, vel_micro_app, is
// the one to install; this one serves where it cannot be built.
#include <cstdio>
#include <fstream>

#include "stub.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: make_stub <output.exe>\n", stderr);
    return 2;
  }
  const auto image = stub::MakeTemplateStub();
  std::ofstream out(argv[1], std::ios::binary);
  out.write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(image.size()));
  out.close();
  if (out) return 0;
  std::fprintf(stderr, "make_stub: cannot write %s\n", argv[1]);
  return 1;
}
