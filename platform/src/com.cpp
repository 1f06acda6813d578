// Component initialisation, counted by thread, and creation. A thread that is initialised counts as one of
// "com" in the census until its last CoUninitialize, as every object does until its last Release.
#include "com.h"

#include <shobjidl.h>

#include <utility>

#include "layer.h"

namespace platform {
namespace {

thread_local unsigned initialisations = 0;
thread_local Counted* initialised = nullptr;

}  // namespace

HRESULT PlannedResult() {
  const DWORD error = PlannedError();
  return error & 0x80000000 ? static_cast<HRESULT>(error) : HRESULT_FROM_WIN32(error);
}

}  // namespace platform

using namespace platform;

HRESULT WINAPI CoInitialize(LPVOID reserved) {
  if (CallFails("CoInitialize", ERROR_OUTOFMEMORY)) return PlannedResult();
  if (reserved) Unsupported("CoInitialize", "a reserved argument");
  if (initialisations++ > 0) return S_FALSE;
  initialised = new Counted("com");
  return S_OK;
}

void WINAPI CoUninitialize() {
  CallPasses("CoUninitialize");
  if (initialisations == 0 || --initialisations > 0) return;
  delete std::exchange(initialised, nullptr);
}

HRESULT WINAPI CoCreateInstance(const CLSID& classId, IUnknown* outer, DWORD context, REFIID iid,
                                LPVOID* object) {
  *object = nullptr;
  if (CallFails("CoCreateInstance", static_cast<DWORD>(REGDB_E_CLASSNOTREG))) return PlannedResult();
  if (outer || context != CLSCTX_INPROC_SERVER)
    Unsupported("CoCreateInstance", "aggregation or another server");
  if (initialisations == 0) return CO_E_NOTINITIALIZED;
  return classId == CLSID_ShellLink ? CreateShellLink(iid, object) : REGDB_E_CLASSNOTREG;
}
