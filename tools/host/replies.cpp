// Encoding of the host's commands and answers: a 20-byte header (code, version, result, reserved, data size)
// and items of index, type, size and value behind each other, everything little-endian.
#include "host/replies.h"

#include <algorithm>
#include <cstring>

namespace host {
namespace {

constexpr std::uint32_t announceRequest = 1, sharingState = 100, getList = 102, getIcons = 103,
                        getDetails = 104;
constexpr std::uint32_t numberItem = 1, bitmapItem = 2, textItem = 3, flagItem = 4, defaultTypeItem = 5,
                        schemeItem = 6;
constexpr std::size_t headerSize = 20, itemHeaderSize = 12;

class Items {
 public:
  void Add(std::uint32_t type, std::span<const std::byte> value) {
    PutU32(bytes_, count_++);
    PutU32(bytes_, type);
    PutU32(bytes_, static_cast<std::uint32_t>(value.size()));
    bytes_.insert(bytes_.end(), value.begin(), value.end());
  }
  void AddText(std::uint32_t type, const std::string& text) {
    Add(type, std::as_bytes(std::span(text.c_str(), text.size() + 1)));
  }
  void AddTexts(std::uint32_t type, const std::vector<std::string>& texts) {
    for (const std::string& text : texts) AddText(type, text);
  }
  const Bytes& bytes() const { return bytes_; }

 private:
  Bytes bytes_;
  std::uint32_t count_ = 0;
};

Bytes Envelope(std::uint32_t code, Result result, std::span<const std::byte> data) {
  Bytes envelope;
  PutU32(envelope, code);
  PutU32(envelope, 3);
  PutU32(envelope, static_cast<std::uint32_t>(result));
  PutU32(envelope, 0);
  PutU32(envelope, static_cast<std::uint32_t>(data.size()));
  envelope.insert(envelope.end(), data.begin(), data.end());
  return envelope;
}

// One item of `type` at the start of `data`, cut off it; empty when there is none.
std::span<const std::byte> TakeItem(std::span<const std::byte>& data, std::uint32_t type) {
  if (data.size() < itemHeaderSize || GetU32(data, 4) != type) return {};
  const std::uint32_t size = GetU32(data, 8);
  if (size > data.size() - itemHeaderSize) return {};
  const auto value = data.subspan(itemHeaderSize, size);
  data = data.subspan(itemHeaderSize + size);
  return value;
}

Items ListItems(const Catalogue& catalogue) {
  Items items;
  for (const Application& app : catalogue.applications()) {
    items.AddText(textItem, app.bundleId);
    items.AddText(textItem, app.name);
  }
  return items;
}

Items IconItems(const Application& app) {
  Items items;
  for (const Icon& icon : app.icons) items.Add(bitmapItem, icon.bmp);
  return items;
}

Items DetailItems(const Application& app) {
  Items items;
  items.AddTexts(textItem, app.documentTypes);
  items.AddTexts(defaultTypeItem, app.defaultTypes);
  Bytes flag;
  PutU32(flag, app.anyType ? 1 : 0);
  items.Add(flagItem, flag);
  items.AddTexts(schemeItem, app.urlSchemes);
  return items;
}

}  // namespace

Question ReadQuestion(std::span<const std::byte> envelope) {
  Question question;
  if (envelope.size() < headerSize) return question;
  question.code = GetU32(envelope, 0);
  const std::uint32_t dataSize = GetU32(envelope, 16);
  auto data = envelope.subspan(headerSize);
  if (GetU32(envelope, 4) != 3 || dataSize > data.size()) return question;
  data = data.first(dataSize);
  if (question.code == sharingState) {
    question.valid = dataSize == 1 && data[0] == std::byte{1};
    return question;
  }
  const auto text = TakeItem(data, textItem);
  const auto room = TakeItem(data, numberItem);
  if (text.empty() || text.back() != std::byte{0} || room.size() != 4 || !data.empty()) return question;
  question.argument = reinterpret_cast<const char*>(text.data());
  question.room = GetU32(room, 0);
  question.valid = true;
  return question;
}

Reply AnswerCommand(const Catalogue& catalogue, std::span<const std::byte> envelope) {
  const Question question = ReadQuestion(envelope);
  const auto answer = [&](Result result, const Items& items = {}) {
    return Reply{.bytes = Envelope(question.code, result, items.bytes())};
  };
  const auto answerInRoom = [&](const Items& items) {
    return items.bytes().size() > question.room ? answer(Result::NoRoom) : answer(Result::Done, items);
  };
  if (!question.valid) return answer(Result::BadRequest);
  if (question.code == sharingState) return answer(Result::Done);
  if (question.code == getList) {
    return question.argument == "*" ? answerInRoom(ListItems(catalogue)) : answer(Result::BadRequest);
  }
  if (question.code != getIcons && question.code != getDetails) return answer(Result::BadRequest);
  const auto& apps = catalogue.applications();
  const auto app = std::find_if(apps.begin(), apps.end(),
                                [&](const Application& each) { return each.bundleId == question.argument; });
  if (app == apps.end()) return answer(Result::UnknownApplication);
  return answerInRoom(question.code == getIcons ? IconItems(*app) : DetailItems(*app));
}

Bytes SharingCommand(bool on) {
  const std::byte data{static_cast<unsigned char>(on)};
  return Envelope(sharingState, Result::Done, std::span(&data, 1));
}

Bytes AnnounceCommand() {
  return Envelope(announceRequest, Result::Done, {});
}

}  // namespace host
