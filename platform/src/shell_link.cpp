// The shell link object. Properties take effect with Commit: what is set but not committed does not reach the
// file.
#include <shobjidl.h>

#include <algorithm>
#include <atomic>

#include "com.h"
#include "files.h"
#include "link_file.h"

namespace platform {
namespace {

class ShellLink final : public IShellLinkW, public IPersistFile, public IPropertyStore {
 public:
  struct Deleter {
    void operator()(ShellLink* link) const { delete link; }
  };

  HRESULT QueryInterface(REFIID iid, void** object) override {
    *object = nullptr;
    if (CallFails("IUnknown::QueryInterface", static_cast<DWORD>(E_NOINTERFACE))) return PlannedResult();
    return Query(iid, object);
  }

  ULONG AddRef() override {
    CallPasses("IUnknown::AddRef");
    return ++references_;
  }

  ULONG Release() override {
    CallPasses("IUnknown::Release");
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

  HRESULT Query(REFIID iid, void** object) {
    if (iid == IID_IUnknown || iid == IID_IShellLinkW) {
      *object = static_cast<IShellLinkW*>(this);
    } else if (iid == IID_IPersistFile) {
      *object = static_cast<IPersistFile*>(this);
    } else if (iid == IID_IPropertyStore) {
      *object = static_cast<IPropertyStore*>(this);
    } else {
      return E_NOINTERFACE;
    }
    ++references_;
    return S_OK;
  }

  HRESULT SetPath(LPCWSTR path) override {
    if (CallFails("IShellLinkW::SetPath", ERROR_OUTOFMEMORY)) return PlannedResult();
    link_.target = path;
    return ResolvePath(path).exists ? S_OK : S_FALSE;
  }

  HRESULT SetDescription(LPCWSTR text) override {
    if (CallFails("IShellLinkW::SetDescription", ERROR_OUTOFMEMORY)) return PlannedResult();
    link_.description = text;
    return S_OK;
  }

  HRESULT GetPath(LPWSTR path, int size, WIN32_FIND_DATAW* data, DWORD flags) override {
    if (CallFails("IShellLinkW::GetPath", ERROR_OUTOFMEMORY)) return PlannedResult();
    if (data || flags) Unsupported("IShellLinkW::GetPath", "file data or flags");
    Give(link_.target, path, size);
    return link_.target.empty() ? S_FALSE : S_OK;
  }

  HRESULT GetDescription(LPWSTR text, int size) override {
    if (CallFails("IShellLinkW::GetDescription", ERROR_OUTOFMEMORY)) return PlannedResult();
    Give(link_.description, text, size);
    return S_OK;
  }

  HRESULT Load(LPCWSTR name, DWORD mode) override {
    if (CallFails("IPersistFile::Load", ERROR_ACCESS_DENIED)) return PlannedResult();
    if (mode != 0) Unsupported("IPersistFile::Load", "the mode");
    std::string bytes;
    if (const DWORD error = ReadWholeFile(name, bytes)) return HRESULT_FROM_WIN32(error);
    auto link = ParseLink(bytes);
    if (!link) return E_FAIL;
    link_ = std::move(*link);
    pending_ = link_.properties;
    return S_OK;
  }

  // Whether the name is remembered makes no difference here: nothing asks for it, and every save names its
  // file.
  HRESULT Save(LPCWSTR name, BOOL) override {
    if (CallFails("IPersistFile::Save", ERROR_ACCESS_DENIED)) return PlannedResult();
    if (!name) Unsupported("IPersistFile::Save", "the remembered name");
    return HRESULT_FROM_WIN32(WriteWholeFile(name, LinkBytes(link_)));
  }

  HRESULT GetValue(REFPROPERTYKEY key, PROPVARIANT* value) override {
    if (CallFails("IPropertyStore::GetValue", ERROR_OUTOFMEMORY)) return PlannedResult();
    const auto found = FindPending(key);
    *value = found == pending_.end() ? PROPVARIANT{} : found->value;
    return S_OK;
  }

  HRESULT SetValue(REFPROPERTYKEY key, const PROPVARIANT& value) override {
    if (CallFails("IPropertyStore::SetValue", ERROR_OUTOFMEMORY)) return PlannedResult();
    if (value.vt != VT_UI4 && value.vt != VT_BOOL) Unsupported("IPropertyStore::SetValue", "the type");
    const auto found = FindPending(key);
    if (found == pending_.end()) {
      pending_.push_back({key, value});
    } else {
      found->value = value;
    }
    return S_OK;
  }

  HRESULT Commit() override {
    if (CallFails("IPropertyStore::Commit", ERROR_OUTOFMEMORY)) return PlannedResult();
    link_.properties = pending_;
    return S_OK;
  }

 private:
  ~ShellLink() = default;

  std::vector<Property>::iterator FindPending(REFPROPERTYKEY key) {
    return std::find_if(pending_.begin(), pending_.end(), [&](const Property& property) {
      return property.key.fmtid == key.fmtid && property.key.pid == key.pid;
    });
  }

  // Cuts what does not fit.
  static void Give(const std::u16string& text, LPWSTR buffer, int size) {
    if (size <= 0) return;
    const std::size_t length = std::min(text.size(), static_cast<std::size_t>(size) - 1);
    std::copy_n(text.begin(), length, buffer);
    buffer[length] = 0;
  }

  const Counted counted_{"com"};
  std::atomic<ULONG> references_{0};
  Link link_;
  std::vector<Property> pending_;
};

}  // namespace

HRESULT CreateShellLink(REFIID iid, void** object) {
  std::unique_ptr<ShellLink, ShellLink::Deleter> link(new ShellLink);
  const HRESULT result = link->Query(iid, object);
  if (SUCCEEDED(result)) static_cast<void>(link.release());  // its references own it from here
  return result;
}

}  // namespace platform
