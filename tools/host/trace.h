// A recording of what host and guest said to each other, and of the guest at each rest: a file of JSON
// objects, one a line. Failures are std::runtime_errors that name the file, and the line where there is one.
#pragma once

#include <filesystem>
#include <fstream>
#include <iosfwd>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "guest/guest_view.h"
#include "host/conversation.h"
#include "host/wire.h"

namespace host {

// Writes each exchange as Described has it, with its "bytes" in hexadecimal; before each command, and at the
// end, a line with the "guest"; last a line "end". The "check" of a line goes over it and all before it.
class Recorder {
 public:
  explicit Recorder(const std::filesystem::path& file);
  void Hear(const Exchange& exchange);
  void Finish();  // while the guest is at rest; a recording without its end shows that it was cut short

 private:
  void WriteGuest();
  void Write(nlohmann::json line);

  std::filesystem::path file_;
  std::ofstream out_;
  std::string check_, step_;
};

struct TraceLine {
  std::size_t number = 0;  // in the file, from 1
  nlohmann::json fields;
  Bytes bytes;  // the envelope of an exchange
};

struct Trace {
  std::vector<TraceLine> lines;
  std::string fault;  // file, line and what is wrong there, after the lines that are whole; otherwise empty
};
Trace ReadTrace(const std::filesystem::path& file);

inline bool Is(const TraceLine& line, Direction direction) {
  return line.fields.value("direction", "") == NameOf(direction);
}
inline bool HoldsGuest(const TraceLine& line) {
  return line.fields.contains("guest");
}
Snapshot GuestOf(const TraceLine& line);  // files and registry
// The guest as it is now, as a recording has it: of a shortcut what it says, for its bytes hold the time as
// well.
Snapshot GuestAtRest();

// Prints what concerns the application (by name or bundleId) and has the code (by name or number), all where
// they are empty; false when that is nothing.
bool PrintTrace(std::ostream& out, const Trace& trace, const std::string& application,
                const std::string& code);

struct SessionOptions;
// Plays the recorded commands and answers once more, against a module of now. Says of each command whether
// the guest asked the same and came out the same; true when all did. The guest must be as the recorded one
// was at its beginning. Throws when the module does not go on.
bool Replay(std::ostream& out, const Trace& trace, const SessionOptions& options);

}  // namespace host
