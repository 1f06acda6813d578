#include "applications.h"

#include "registry/registry.h"
#include "registry/registry_names.h"

namespace bench {

void AddForeignClasses(std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const WideString number = Utf8ToWide(std::to_string(i));
    const WideString key = i % 10 == 0
                               ? ClassKey(TEXT(".foreign") + number + TEXT("\\OpenWithList\\foreign.exe"))
                               : ClassKey(TEXT("Foreign.Class.") + number);
    SetStringValue(HKEY_CURRENT_USER, key, defaultValue, TEXT("foreign"));
  }
}

host::Application MakeApplication(std::size_t number, std::size_t generation) {
  const std::string n = std::to_string(number);
  host::Application app;
  app.bundleId = "b" + n;
  app.name = "App " + n + std::string(generation, 'x');
  for (const char* type : {"a", "b", "c", "d", "e"}) app.documentTypes.push_back("t" + n + type);
  app.defaultTypes = {app.documentTypes.front()};
  app.urlSchemes = {"s" + n + "a", "s" + n + "b"};
  for (const int size : {16, 32, 48}) {
    const auto side = static_cast<std::uint32_t>(size);
    app.icons.push_back(
        {.file = "icon.png", .size = size, .accepted = true, .bmp = host::BlankBitmap(side, side)});
  }
  return app;
}

std::vector<host::Application> MakeApplications(std::size_t count, bool changed) {
  std::vector<host::Application> apps;
  for (std::size_t i = 0; i < count; ++i) apps.push_back(MakeApplication(i, changed && i % 10 == 0 ? 1 : 0));
  return apps;
}

}  // namespace bench
