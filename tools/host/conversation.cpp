// Reading what was said: every field by its name, and why the rest cannot be read where that is so.
#include "host/conversation.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/text.h"
#include "host/wire.h"

namespace host {
namespace {

constexpr std::uint32_t announce = 1, sharing = 100, list = 102, icons = 103, details = 104;

std::string NameOfItem(Direction direction, std::uint32_t code, const Item& item) {
  if (direction == Direction::Request) {
    if (item.type == numberItem) return "room";
    if (item.type == textItem) return code == list ? "pattern" : "bundleId";
  }
  switch (item.type) {
    case bitmapItem:
      return "icon";
    case textItem:
      if (code == list) return item.index % 2 == 0 ? "bundleId" : "name";
      return "documentType";
    case flagItem:
      return "anyType";
    case defaultTypeItem:
      return "defaultType";
    case schemeItem:
      return "urlScheme";
    default:
      return "type " + std::to_string(item.type);
  }
}

std::string ValueOfItem(const Item& item) {
  std::string size = WithThousands(item.value.size()) + " bytes";
  switch (item.type) {
    case numberItem:
    case flagItem:
      return item.value.size() < 4 ? size : std::to_string(GetU32(item.value, 0));
    case bitmapItem:
      if (item.value.size() < 54) return size;
      return std::to_string(GetU32(item.value, 18)) + " x " + std::to_string(GetU32(item.value, 22)) + ", " +
             std::to_string(GetU16(item.value, 28)) + " bits, " + size;
    case textItem:
    case defaultTypeItem:
    case schemeItem: {
      const auto end = std::find(item.value.begin(), item.value.end(), std::byte{0});
      return {reinterpret_cast<const char*>(item.value.data()),
              static_cast<std::size_t>(end - item.value.begin())};
    }
    default:
      return size;
  }
}

}  // namespace

const char* NameOf(Direction direction) {
  return direction == Direction::Command ? "command" : direction == Direction::Request ? "request" : "reply";
}

std::string NameOfCode(std::uint32_t code) {
  for (const auto& [known, name] :
       {std::pair{announce, "announce"}, std::pair{sharing, "sharing"}, std::pair{list, "list"},
        std::pair{icons, "icons"}, std::pair{details, "details"}}) {
    if (code == known) return name;
  }
  return std::to_string(code);
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
  if (message.code == sharing && data.size() == 1) {
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
