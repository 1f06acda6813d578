// The host requests and the readers of their replies. A reply overwrites the request in one buffer; nothing
// of it is believed before it has been checked, and nothing behind its end is read.
#include "channel/mainfo.h"

#include <cstring>
#include <memory>
#include <utility>

#include "channel/dtool.h"
#include "channel/tool_gate.h"
#include "launcher/resop.h"
#include "xdt/bit_box/bit_box.h"

namespace {

constexpr std::uint32_t headerSize = sizeof(WMA_Command);
constexpr std::uint32_t recordsBufferSize = 32768;  // list and details
constexpr std::uint32_t iconsBufferSize = 277784;

// One question and its reply, which lives as long as the exchange.
class Exchange {
 public:
  Exchange(std::uint32_t code, WideView argument, std::uint32_t bufferSize)
      : room_(bufferSize - headerSize), buffer_(ComposeRequest(code, argument, room_)) {
    if (device_.Ioctl(TgSendCommand, buffer_.get(), bufferSize) == 0) XDT_RAISE("ioctl() returned no data");
    if (Header().result != 0) XDT_RAISE("command failed");
    if (Header().dataSize > room_) XDT_RAISE("reply exceeds its buffer");
  }

  xdt::bit_box Reply() const { return {buffer_.get() + headerSize, Header().dataSize}; }

 private:
  using Buffer = std::unique_ptr<std::byte[]>;

  // The envelope, with the argument and the room for the reply's data as its two items.
  static Buffer ComposeRequest(std::uint32_t code, WideView argument, std::uint32_t room) {
    xdt::bit_box::composer data;
    data.append_string(WideToUtf8(argument).c_str());
    data.append_uint32(room);
    if (data.size() > room) XDT_RAISE("request exceeds its buffer");
    auto buffer = std::make_unique<std::byte[]>(headerSize + room);
    const WMA_Command header{code, commandVersion, 0, 0, data.size()};
    std::memcpy(buffer.get(), &header, headerSize);
    std::memcpy(buffer.get() + headerSize, data.data(), data.size());
    return buffer;
  }

  WMA_Command Header() const {
    WMA_Command header;
    std::memcpy(&header, buffer_.get(), headerSize);
    return header;
  }

  std::uint32_t room_;
  Buffer buffer_;
  ToolDevice device_;  // opened once the request is composed
};

WideString TextOfItem(const xdt::bit_box::const_iterator& item) {
  return Utf8ToWide(item.string());
}

WideString StringOfList(const xdt::bit_box::const_iterator& item) {
  if (item.type() != WMA_Command::bbt_utf8string) XDT_RAISE("type WMA_Command::bbt_utf8string expected");
  return TextOfItem(item);
}

}  // namespace

void GetMacAppList(WideView pattern, MacAppInfoList& apps) {
  const Exchange exchange(CmdGetAppList, pattern, recordsBufferSize);
  for (auto item = exchange.Reply().begin(); !item.at_end(); ++item) {
    WideString bundleId = StringOfList(item);
    ++item;
    if (item.at_end()) XDT_RAISE("list format error");
    apps.push_back({std::move(bundleId), StringOfList(item)});
  }
}

void GetMacAppDetails(const MacAppInfo& app, MacAppDetails& details) {
  const Exchange exchange(CmdGetAppDetails, app.bundleId, recordsBufferSize);
  for (auto item = exchange.Reply().begin(); !item.at_end(); ++item) {
    switch (item.type()) {
      case WMA_Command::bbt_utf8string:
        details.documentTypes.push_back(TextOfItem(item));
        break;
      case WMA_Command::bbt_default_type:
        details.defaultTypes.push_back(TextOfItem(item));
        break;
      case WMA_Command::bbt_url_scheme:
        details.urlSchemes.push_back(TextOfItem(item));
        break;
      case WMA_Command::bbt_flag:
        details.anyType = item.number() != 0;
        break;
      default:  // what a newer host may add
        break;
    }
  }
}

void WriteMacAppIcons(HANDLE update, const MacAppInfo& app) {
  const Exchange exchange(CmdGetAppIcons, app.bundleId, iconsBufferSize);
  HostBitmapList bitmaps;
  for (auto item = exchange.Reply().begin(); !item.at_end(); ++item) {
    if (item.type() != WMA_Command::bbt_bitmap) XDT_RAISE("type WMA_Command::bbt_bitmap expected");
    bitmaps.emplace_back(item.value(), item.size());
  }
  WriteIconGroup(update, bitmaps, IconGroupId);
}
