// What the host answers from its catalogue, and how it reads a request.
#include "host/replies.h"

#include <algorithm>

namespace host {
namespace {

void AddTexts(Items& items, std::uint32_t type, const std::vector<std::string>& texts) {
  for (const std::string& text : texts) items.Text(type, text);
}

// The value of the item at the start of `data`, cut off it; empty when that is none of `type`.
std::span<const std::byte> TakeValue(std::span<const std::byte>& data, std::uint32_t type) {
  Item item;
  return TakeItem(data, item) && item.type == type ? item.value : std::span<const std::byte>();
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
  if (question.code == sharingCode) {
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
  const auto& apps = catalogue.applications();
  const auto app = std::ranges::find(apps, question.argument, &Application::bundleId);
  Items items;
  Result result = question.valid ? Result::Done : Result::BadRequest;
  if (!question.valid || question.code == sharingCode) {  // there is nothing to tell
  } else if (question.code == listCode && question.argument == "*") {
    for (const Application& each : apps) items.Text(textItem, each.bundleId).Text(textItem, each.name);
  } else if (question.code != iconsCode && question.code != detailsCode) {
    result = Result::BadRequest;
  } else if (app == apps.end()) {
    result = Result::UnknownApplication;
  } else {
    items = question.code == iconsCode ? IconItems(*app) : DetailItems(*app);
  }
  if (items.bytes().size() > question.room) {
    items = {};
    result = Result::NoRoom;
  }
  return {.bytes = Envelope(question.code, items.bytes(), static_cast<std::uint32_t>(result))};
}

Bytes SharingCommand(bool on) {
  const std::byte data{static_cast<unsigned char>(on)};
  return Envelope(sharingCode, std::span(&data, 1));
}

Bytes AnnounceCommand() {
  return Envelope(announceCode);
}

}  // namespace host
