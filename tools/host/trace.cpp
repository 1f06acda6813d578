// The lines of a recording: written, read back, and shown to people.
#include "host/trace.h"

#include <charconv>
#include <iomanip>
#include <ostream>
#include <stdexcept>

#include "guest/launcher_view.h"
#include "guest/text.h"

namespace host {
namespace {

using nlohmann::json;

std::string Hex(std::span<const std::byte> bytes) {
  std::string text;
  for (const std::byte each : bytes) {
    for (const int shift : {4, 0}) text += "0123456789abcdef"[std::to_integer<int>(each) >> shift & 15];
  }
  return text;
}

// Of what Hex has written.
Bytes BytesOf(const std::string& hex) {
  Bytes bytes(hex.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    std::from_chars(&hex[2 * i], &hex[2 * i] + 2, reinterpret_cast<unsigned char&>(bytes[i]), 16);
  }
  return bytes;
}

std::string TextOf(const json& line) {
  return line.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string TextOfItems(const json& items) {
  std::string text;
  for (const json& item : items) {
    text += (text.empty() ? "" : ", ") + item[0].get<std::string>() + " " + item[1].get<std::string>();
  }
  return text;
}

// Follows a conversation with one application in mind.
class Concern {
 public:
  explicit Concern(const std::string& application) : name_(application), bundleId_(application) {}

  bool Meets(const json& line) {
    bool named = false;
    std::string id;
    for (const json& item : line.value("items", json::array())) {
      if (item[0] == "bundleId") id = item[1];
      if (item[0] == "name" && EqualNoCase(item[1].get<std::string>(), name_)) bundleId_ = id;
      named |= (item[0] == "bundleId" || item[0] == "name") && id == bundleId_;
    }
    const bool answers = line.value("direction", "") == NameOf(Direction::Reply) && asked_;
    asked_ = named;
    return named || answers;
  }

 private:
  std::string name_, bundleId_;
  bool asked_ = false;
};

}  // namespace

Recorder::Recorder(const std::filesystem::path& file)
    : file_(file), out_(file, std::ios::binary | std::ios::trunc) {
  if (!out_) throw std::runtime_error(PathText(file) + ": cannot be written");
}

void Recorder::Hear(const Exchange& exchange) {
  if (exchange.direction == Direction::Command) WriteGuest();
  step_ = exchange.step;
  json line = Described(exchange);
  line["bytes"] = Hex(exchange.bytes);
  Write(std::move(line));
}

void Recorder::Finish() {
  WriteGuest();
  Write({{"end", true}});
  out_.close();
  if (!out_) throw std::runtime_error(PathText(file_) + ": cannot be written");
}

void Recorder::WriteGuest() {
  const Snapshot guest = GuestAtRest();
  Write({{"step", step_}, {"guest", {{"files", guest.files}, {"registry", guest.registry}}}});
}

void Recorder::Write(json line) {
  check_ = Digest(check_ + TextOf(line));
  line["check"] = check_;
  out_ << TextOf(line) << std::endl;  // whole, should the process end
}

Trace ReadTrace(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in || !is_regular_file(file))
    throw std::runtime_error(PathText(file) + ": is no file that can be read");
  Trace trace;
  std::string check;
  bool ended = false;
  std::size_t number = 0;
  const auto fail = [&](const char* why) {
    trace.fault = PathText(file) + ": line " + std::to_string(number) + ": " + why;
    return trace;
  };
  for (std::string text; std::getline(in, text);) {
    ++number;
    json fields = json::parse(text, nullptr, false);
    const std::string stored = fields.is_object() ? fields.value("check", json()).dump() : "";
    if (!stored.empty()) fields.erase("check");
    check = Digest(check + TextOf(fields));
    if (ended || in.eof() || stored != '"' + check + '"') return fail("is cut or changed");
    ended = fields.contains("end");
    Bytes bytes = BytesOf(fields.value("bytes", ""));
    trace.lines.push_back({number, std::move(fields), std::move(bytes)});
  }
  return ended ? trace : fail("the recording stops here, without its end");
}

Snapshot GuestAtRest() {
  Snapshot guest = TakeSnapshot();
  for (auto& [path, content] : guest.files) {
    const auto shortcut = path.ends_with(".lnk") ? ReadShortcut(path) : std::nullopt;
    if (!shortcut) continue;
    content = "to " + shortcut->target + ", " + shortcut->description +
              (shortcut->staysUnpinned ? ", stays unpinned" : "") +
              (shortcut->staysUnannounced ? ", stays unannounced" : "");
  }
  return guest;
}

Snapshot GuestOf(const TraceLine& line) {
  Snapshot guest;
  line.fields.at("guest").at("files").get_to(guest.files);
  line.fields.at("guest").at("registry").get_to(guest.registry);
  return guest;
}

bool PrintTrace(std::ostream& out, const Trace& trace, const std::string& application,
                const std::string& code) {
  Concern concern(application);
  std::string step;
  bool any = false;
  for (const auto& [number, fields, bytes] : trace.lines) {
    const bool concerns = application.empty() || concern.Meets(fields);
    const bool exchange = fields.contains("direction");
    const bool all = application.empty() && code.empty();
    if (!concerns || (!exchange && !(all && fields.contains("guest")))) continue;
    if (exchange && !code.empty() && code != fields["code"] &&
        code != std::to_string(bytes.size() < 4 ? 0 : GetU32(bytes, 0))) {
      continue;
    }
    any = true;
    if (fields["step"] != step) {
      step = fields["step"];
      out << "\n* " << step << "\n";
    }
    if (!exchange) {
      out << "              guest at rest: " << fields["guest"]["files"].size() << " files, "
          << fields["guest"]["registry"].size() << " registry entries\n";
      continue;
    }
    out << std::fixed << std::setprecision(1) << std::setw(10) << fields["ms"].get<double>() << " ms  "
        << std::left << std::setw(9) << fields["direction"].get<std::string>() << std::setw(10)
        << fields["code"].get<std::string>() << std::right << std::setw(9) << WithThousands(bytes.size())
        << " bytes  " << TextOfItems(fields["items"]);
    for (const char* field : {"result", "status"}) {
      if (fields[field] != 0) out << "  " << field << " " << fields[field];
    }
    if (fields.contains("fault")) out << "  (" << fields["fault"].get<std::string>() << ")";
    out << "\n";
  }
  return any;
}

}  // namespace host
