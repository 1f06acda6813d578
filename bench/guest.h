// A native guest to measure in, and the two who work in it: the module, and the straight line.
#pragma once

#include <filesystem>
#include <memory>

#include "straight_line.h"

namespace bench {

enum class Work { First, Unchanged, Changed, Withdrawal };  // in this order
inline constexpr Work allWork[] = {Work::First, Work::Unchanged, Work::Changed, Work::Withdrawal};
const char* NameOf(Work work);

// Drive C and a registry of this process' own, gone with it. One at a time.
class Guest {
 public:
  explicit Guest(std::size_t foreignClasses = 0);
  ~Guest();
  Guest(const Guest&) = delete;
  Guest& operator=(const Guest&) = delete;

 private:
  std::filesystem::path root_;
};

class Host;
inline constexpr std::size_t listRoom = 700;  // so many applications fit a list reply

// `count` applications, of which a tenth changes.
class Mirror {
 public:
  explicit Mirror(std::size_t count);
  ~Mirror();
  Mirror(const Mirror&) = delete;
  Mirror& operator=(const Mirror&) = delete;

  void Share(Work work);  // the list that comes with it, for what Run does next
  void Run(Work work, bool straight) const;

 private:
  void Pass() const;

  std::size_t count_;
  std::shared_ptr<Host> host_;
  StraightLine line_, changedLine_;
};

}  // namespace bench
