// The shell link format: a header, the target as link information (volume and local path), the description, a
// block of properties and an empty block. All numbers are little-endian, and every size counts itself.
#include "link_file.h"

#include <shobjidl.h>

#include "layer.h"

namespace platform {
namespace {

constexpr std::uint32_t hasLinkInfo = 0x2, hasDescription = 0x4, isUnicode = 0x80;
constexpr std::size_t headerSize = 0x4C, infoHeaderSize = 0x24;
constexpr std::uint32_t hasLocalPath = 1, fixedDrive = 3;
constexpr std::uint32_t propertyBlock = 0xA0000009, storageVersion = 0x53505331;
constexpr std::uint32_t showNormal = 1;

// ---- Writing ----

void Put(std::string& bytes, std::uint32_t value, std::size_t size = 4) {
  for (std::size_t i = 0; i < size; ++i) bytes += static_cast<char>(value >> (8 * i));
}

void PutGuid(std::string& bytes, const GUID& guid) {
  Put(bytes, guid.Data1);
  Put(bytes, guid.Data2, 2);
  Put(bytes, guid.Data3, 2);
  for (const std::uint8_t byte : guid.Data4) Put(bytes, byte, 1);
}

void PutText(std::string& bytes, std::u16string_view text) {
  for (const char16_t unit : text) Put(bytes, unit, 2);
}

// The parts that a size counting itself goes in front of.
std::string Sized(const std::string& content) {
  std::string bytes;
  Put(bytes, static_cast<std::uint32_t>(content.size() + 4));
  return bytes + content;
}

std::string LinkInformation(const std::u16string& target) {
  std::string volume;
  Put(volume, fixedDrive);
  Put(volume, 0);     // serial number
  Put(volume, 0x10);  // where the label begins
  Put(volume, 0, 1);  // an empty label
  volume = Sized(volume);

  // The narrow path is for readers that know no other; the wide one is what counts.
  std::string narrow;
  for (const char16_t unit : target) narrow += unit < 0x80 ? static_cast<char>(unit) : '?';
  narrow += '\0';
  const std::size_t path = infoHeaderSize + volume.size(), suffix = path + narrow.size();
  const std::size_t widePath = suffix + 2 - suffix % 2, wideSuffix = widePath + 2 * (target.size() + 1);

  std::string info;
  Put(info, infoHeaderSize);
  Put(info, hasLocalPath);
  Put(info, infoHeaderSize);  // where the volume begins
  Put(info, static_cast<std::uint32_t>(path));
  Put(info, 0);  // no network
  Put(info, static_cast<std::uint32_t>(suffix));
  Put(info, static_cast<std::uint32_t>(widePath));
  Put(info, static_cast<std::uint32_t>(wideSuffix));
  info += volume + narrow;
  info.resize(widePath - 4);  // an empty suffix, up to an even offset; the size comes in front
  PutText(info, target);
  Put(info, 0, 2);
  Put(info, 0, 2);  // an empty suffix
  return Sized(info);
}

std::string PropertyStorage(const std::vector<Property>& properties) {
  const GUID& format = properties.front().key.fmtid;
  std::string storage;
  Put(storage, storageVersion);
  PutGuid(storage, format);
  for (const Property& property : properties) {
    if (!(property.key.fmtid == format)) Unsupported("links", "properties of two sets");
    std::string value;
    Put(value, property.key.pid);
    Put(value, 0, 1);
    Put(value, property.value.vt);  // the type and two bytes of padding
    Put(value, property.value.vt == VT_UI4 ? property.value.ulVal
                                           : static_cast<std::uint16_t>(property.value.boolVal));
    storage += Sized(value);
  }
  Put(storage, 0);  // no more values
  return Sized(storage);
}

// ---- Reading ----

class Reader {
 public:
  explicit Reader(std::string_view bytes) : rest_(bytes) {}

  bool failed() const { return failed_; }
  std::size_t left() const { return rest_.size(); }

  std::string_view Bytes(std::size_t size) {
    if (size > rest_.size()) {
      failed_ = true;
      rest_ = {};
      return {};
    }
    const std::string_view bytes = rest_.substr(0, size);
    rest_.remove_prefix(size);
    return bytes;
  }

  std::uint32_t Number(std::size_t size = 4) {
    std::uint32_t value = 0;
    const std::string_view bytes = Bytes(size);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      value |= std::uint32_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
    }
    return value;
  }

  // The content behind a size that counts itself; nothing behind a size of 0.
  Reader Sized() {
    const std::uint32_t size = Number();
    return Reader(Bytes(size < 4 ? 0 : size - 4));
  }

  GUID Guid() {
    GUID guid{Number(), static_cast<std::uint16_t>(Number(2)), static_cast<std::uint16_t>(Number(2)), {}};
    for (std::uint8_t& byte : guid.Data4) byte = static_cast<std::uint8_t>(Number(1));
    return guid;
  }

  std::u16string Text(std::size_t units) {
    std::u16string text;
    for (std::size_t i = 0; i < units && !failed_; ++i) text += static_cast<char16_t>(Number(2));
    return text;
  }

 private:
  std::string_view rest_;
  bool failed_ = false;
};

std::u16string ReadTarget(Reader info) {
  const std::size_t size = info.left() + 4;
  Reader header(info.Bytes(infoHeaderSize - 4));
  header.Bytes(6 * 4);  // header size, flags and the offsets of volume, path, network and suffix
  const std::size_t path = header.Number(), suffix = header.Number();
  if (header.failed() || path < infoHeaderSize || suffix < path + 2 || suffix > size) return {};
  info.Bytes(path - infoHeaderSize);
  return info.Text((suffix - path) / 2 - 1);
}

bool ReadProperties(Reader store, std::vector<Property>& properties) {
  while (store.left() > 4) {
    Reader storage = store.Sized();
    if (storage.Number() != storageVersion) return false;
    const GUID format = storage.Guid();
    while (storage.left() > 4) {
      Reader field = storage.Sized();
      Property property{{format, field.Number()}, {}};
      field.Bytes(1);
      property.value.vt = static_cast<WORD>(field.Number());
      if (property.value.vt == VT_UI4) {
        property.value.ulVal = field.Number();
      } else {
        property.value.boolVal = static_cast<VARIANT_BOOL>(field.Number());
      }
      if (field.failed() || (property.value.vt != VT_UI4 && property.value.vt != VT_BOOL)) return false;
      properties.push_back(property);
    }
    if (storage.failed()) return false;
  }
  return !store.failed();
}

}  // namespace

std::string LinkBytes(const Link& link) {
  std::string bytes;
  Put(bytes, headerSize);
  PutGuid(bytes, CLSID_ShellLink);
  Put(bytes,
      isUnicode | (link.target.empty() ? 0 : hasLinkInfo) | (link.description.empty() ? 0 : hasDescription));
  bytes.resize(headerSize - 16);  // attributes, times, size and icon of the target are not recorded
  Put(bytes, showNormal);
  bytes.resize(headerSize);  // no hot key
  if (!link.target.empty()) bytes += LinkInformation(link.target);
  if (!link.description.empty()) {
    Put(bytes, static_cast<std::uint32_t>(link.description.size()), 2);
    PutText(bytes, link.description);
  }
  if (!link.properties.empty()) {
    std::string block;
    Put(block, propertyBlock);
    block += PropertyStorage(link.properties);
    Put(block, 0);  // no more storages
    bytes += Sized(block);
  }
  Put(bytes, 0);  // no more blocks
  return bytes;
}

std::optional<Link> ParseLink(std::string_view bytes) {
  Link link;
  Reader file(bytes);
  Reader header(file.Bytes(headerSize));
  if (header.Number() != headerSize || !(header.Guid() == CLSID_ShellLink)) return std::nullopt;
  const std::uint32_t flags = header.Number();
  if (!(flags & isUnicode) || (flags & ~(hasLinkInfo | hasDescription | isUnicode))) return std::nullopt;
  if (flags & hasLinkInfo) link.target = ReadTarget(file.Sized());
  if (flags & hasDescription) link.description = file.Text(file.Number(2));
  while (file.left() > 4) {
    Reader block = file.Sized();
    if (block.Number() == propertyBlock && !ReadProperties(block, link.properties)) return std::nullopt;
  }
  const bool whole = !file.failed() && link.target.empty() == !(flags & hasLinkInfo);
  return whole ? std::optional(std::move(link)) : std::nullopt;
}

}  // namespace platform
