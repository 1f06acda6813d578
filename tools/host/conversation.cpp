// Reading what was said: every field by its name, and why the rest cannot be read where that is so.
#include "host/conversation.h"

#include <map>
#include <nlohmann/json.hpp>

#include "guest/text.h"
#include "host/wire.h"

namespace host {
namespace {

// Of a number its name, or else the number behind a word.
std::string NameOf(std::uint32_t number, const std::map<std::uint32_t, const char*>& names,
                   const char* word) {
  const auto found = names.find(number);
  return found != names.end() ? found->second : word + std::to_string(number);
}

std::string NameOfItem(Direction direction, std::uint32_t code, const Item& item) {
  const bool asks = direction == Direction::Request, ofList = code == listCode;
  if (asks && item.type == numberItem) return "room";
  if (asks && item.type == textItem) return ofList ? "pattern" : "bundleId";
  if (ofList && item.type == textItem) return item.index % 2 == 0 ? "bundleId" : "name";
  return NameOf(item.type,
                {{bitmapItem, "icon"},
                 {textItem, "documentType"},
                 {flagItem, "anyType"},
                 {defaultTypeItem, "defaultType"},
                 {schemeItem, "urlScheme"}},
                "type ");
}

std::string ValueOfItem(const Item& item) {
  std::string size = WithThousands(item.value.size()) + " bytes";
  if (item.type == textItem || item.type == defaultTypeItem || item.type == schemeItem) {
    const std::string text(reinterpret_cast<const char*>(item.value.data()), item.value.size());
    return text.substr(0, text.find('\0'));
  }
  if ((item.type == numberItem || item.type == flagItem) && item.value.size() >= 4) {
    return std::to_string(GetU32(item.value, 0));
  }
  if (item.type != bitmapItem || item.value.size() < 54) return size;
  return std::to_string(GetU32(item.value, 18)) + " x " + std::to_string(GetU32(item.value, 22)) + ", " +
         std::to_string(GetU16(item.value, 28)) + " bits, " + size;
}

}  // namespace

const char* NameOf(Direction direction) {
  return direction == Direction::Command ? "command" : direction == Direction::Request ? "request" : "reply";
}

std::string NameOfCode(std::uint32_t code) {
  return NameOf(code,
                {{announceCode, "announce"},
                 {sharingCode, "sharing"},
                 {listCode, "list"},
                 {iconsCode, "icons"},
                 {detailsCode, "details"}},
                "");
}

Message ReadMessage(Direction direction, std::span<const std::byte> envelope) {
  Message message;
  if (envelope.size() < envelopeHeader) {
    message.fault = "the envelope is shorter than its header";
    return message;
  }
  message.code = GetU32(envelope, 0);
  message.result = GetU32(envelope, 8);
  const std::uint32_t size = GetU32(envelope, 16);
  auto data = envelope.subspan(envelopeHeader);
  if (size > data.size()) {
    message.fault =
        "of " + std::to_string(size) + " bytes of data " + std::to_string(data.size()) + " are there";
    return message;
  }
  data = data.first(size);
  if (message.code == sharingCode && data.size() == 1) {
    const bool on = data[0] != std::byte{0};
    message.items.emplace_back(direction == Direction::Command ? "sharing" : "announcement",
                               on ? "on" : "off");
    return message;
  }
  Item item;
  while (TakeItem(data, item)) {
    message.items.emplace_back(NameOfItem(direction, message.code, item), ValueOfItem(item));
  }
  if (!data.empty()) {
    message.fault = "item " + std::to_string(message.items.size()) + " exceeds the data";
  }
  return message;
}

nlohmann::json Described(const Exchange& exchange) {
  const Message message = ReadMessage(exchange.direction, exchange.bytes);
  nlohmann::json described = {{"step", exchange.step},
                              {"ms", exchange.milliseconds},
                              {"direction", NameOf(exchange.direction)},
                              {"code", NameOfCode(message.code)},
                              {"size", exchange.bytes.size()},
                              {"status", exchange.status},
                              {"result", message.result},
                              {"items", nlohmann::json::array()}};
  for (const auto& [name, value] : message.items) described["items"].push_back({name, value});
  if (!message.fault.empty()) described["fault"] = message.fault;
  return described;
}

void Conversation::Listen(Listener listener) {
  std::lock_guard lock(mutex_);
  listeners_.push_back(std::move(listener));
}

void Conversation::BeginStep(std::string step) {
  std::lock_guard lock(mutex_);
  step_ = std::move(step);
}

void Conversation::Hear(Direction direction, std::span<const std::byte> envelope, std::uint32_t status) {
  std::lock_guard lock(mutex_);
  const std::chrono::duration<double, std::milli> since = std::chrono::steady_clock::now() - began_;
  for (const Listener& listener : listeners_) listener({step_, since.count(), direction, envelope, status});
}

}  // namespace host
