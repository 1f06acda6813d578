// A guest in which the module can do its whole work: tools installed, a host behind the gate, COM up, and the
// launcher folder there. Applications are named by their display names, in UTF-8.
#pragma once

#include "common/handles.h"
#include "common/host_application.h"
#include "guest/guest_view.h"
#include "guest/launcher_view.h"
#include "support/gaps.h"
#include "support/gate_fixture.h"
#include "support/hive.h"
#include "support/raised.h"

class ModuleTest : public GateTest {
 public:
  static WideString TemplateFile();  // the installed template's path

 protected:
  void SetUp() override;
  void TearDown() override;

  // The launcher folder, without a trailing separator.
  const WideString& folder() const { return folder_; }

  static MacAppInfo Info(const std::string& name);  // as TestApplication has it

  WideString Launcher(const std::string& name) const;  // its path
  static WideString Shortcut(const std::string& name);

  // What the guest has of an application, each with a blank behind it: "template" or "launcher", "key",
  // "shortcut".
  std::string Parts(const std::string& name) const;

  // The names of the files in the guest's two folders, sorted by their bytes, one a line.
  static std::string Files();

 private:
  WideString folder_;
};

bool FileIsThere(const WideString& path);
void WriteFileAt(const WideString& path, const std::string& bytes);

// The data of one resource exactly as it is stored, found by its own language; "none" when there is none.
std::string ResourceData(const WideString& path, WORD type, WORD name, WORD language);
host::Resources ResourcesOf(const WideString& path);
// Changes a file's resources from outside the module; empty data deletes.
void PutResource(const WideString& path, WORD type, WORD name, WORD language, const std::string& data);
