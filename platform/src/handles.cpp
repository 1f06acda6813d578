// The handle table and the census. A handle is a number from a counter in the shape of a pointer; closing it
// drops the table's share of the object, which lives on while a call still uses it.
#include <platform/control.h>
#include <map>
#include <mutex>

#include "layer.h"

namespace platform {
namespace {

struct Table {
  std::mutex mutex;
  std::uintptr_t next = 0x10000;
  std::map<std::uintptr_t, std::shared_ptr<Object>> objects;
  std::map<std::string, std::size_t> census;
};

// Never destroyed: threads of the program may outlive the end of main.
Table& Handles() {
  static auto* table = new Table;
  return *table;
}

void Leave(Table& table, const char* kind) {
  auto entry = table.census.find(kind);
  if (--entry->second == 0) table.census.erase(entry);
}

}  // namespace

void* AddHandle(std::shared_ptr<Object> object) {
  Table& table = Handles();
  std::lock_guard lock(table.mutex);
  ++table.census[object->kind()];
  table.next += 4;
  table.objects.emplace(table.next, std::move(object));
  return reinterpret_cast<void*>(table.next);
}

std::shared_ptr<Object> FindObject(const void* handle) {
  Table& table = Handles();
  std::lock_guard lock(table.mutex);
  auto entry = table.objects.find(reinterpret_cast<std::uintptr_t>(handle));
  return entry == table.objects.end() ? nullptr : entry->second;
}

std::shared_ptr<Object> RemoveHandle(const void* handle) {
  Table& table = Handles();
  std::lock_guard lock(table.mutex);
  auto entry = table.objects.find(reinterpret_cast<std::uintptr_t>(handle));
  if (entry == table.objects.end()) return nullptr;
  auto object = std::move(entry->second);
  table.objects.erase(entry);
  Leave(table, object->kind());
  return object;
}

Counted::Counted(const char* kind) : kind_(kind) {
  std::lock_guard lock(Handles().mutex);
  ++Handles().census[kind_];
}

Counted::~Counted() {
  std::lock_guard lock(Handles().mutex);
  Leave(Handles(), kind_);
}

std::map<std::string, std::size_t> Census() {
  std::lock_guard lock(Handles().mutex);
  return Handles().census;
}

}  // namespace platform

// Objects release what they hold in their destructors, after the table has let go of its lock.
BOOL WINAPI CloseHandle(HANDLE handle) {
  platform::CallPasses("CloseHandle");
  return platform::Close<platform::KernelObject>("CloseHandle", handle) != nullptr;
}
