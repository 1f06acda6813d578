// What the host answers from its catalogue, and how it reads a request.
#include "host/replies.h"

#include <algorithm>
#include <cstring>

namespace host {
namespace {

constexpr std::uint32_t announceRequest = 1, sharingState = 100, getList = 102, getIcons = 103,
                        getDetails = 104;

void AddTexts(Items& items, std::uint32_t type, const std::vector<std::string>& texts) {
  for (const std::string& text : texts) items.Text(type, text);
}

// The value of the item at the start of `data`, cut off it; empty when that is none of `type`.
std::span<const std::byte> TakeValue(std::span<const std::byte>& data, std::uint32_t type) {
  Item item;
  return TakeItem(data, item) && item.type == type ? item.value : std::span<const std::byte>();
}

Items ListItems(const Catalogue& catalogue) {
  Items items;
  for (const Application& app : catalogue.applications()) {
    items.Text(textItem, app.bundleId).Text(textItem, app.name);
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
  AddTexts(items, textItem, app.documentTypes);
  AddTexts(items, defaultTypeItem, app.defaultTypes);
  items.Number(flagItem, app.anyType ? 1 : 0);
  AddTexts(items, schemeItem, app.urlSchemes);
  return items;
}

}  // namespace

Question ReadQuestion(std::span<const std::byte> envelope) {
  Question question;
  if (envelope.size() < envelopeHeader) return question;
  question.code = GetU32(envelope, 0);
  const std::uint32_t dataSize = GetU32(envelope, 16);
  auto data = envelope.subspan(envelopeHeader);
  if (GetU32(envelope, 4) != 3 || dataSize > data.size()) return question;
  data = data.first(dataSize);
  if (question.code == sharingState) {
    question.valid = dataSize == 1 && data[0] == std::byte{1};
    return question;
  }
  const auto text = TakeValue(data, textItem);
  const auto room = TakeValue(data, numberItem);
  if (text.empty() || text.back() != std::byte{0} || room.size() != 4 || !data.empty()) return question;
  question.argument = reinterpret_cast<const char*>(text.data());
  question.room = GetU32(room, 0);
  question.valid = true;
  return question;
}

Reply AnswerCommand(const Catalogue& catalogue, std::span<const std::byte> envelope) {
  const Question question = ReadQuestion(envelope);
  const auto answer = [&](Result result, const Items& items = {}) {
    return Reply{.bytes = Envelope(question.code, items.bytes(), static_cast<std::uint32_t>(result))};
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
  return Envelope(sharingState, std::span(&data, 1));
}

Bytes AnnounceCommand() {
  return Envelope(announceRequest);
}

}  // namespace host
