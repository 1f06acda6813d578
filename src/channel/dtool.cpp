// One request with two buffers over the same memory: the device reads the first and writes the second.
#include "channel/dtool.h"

#include "channel/tool_gate.h"
#include "xdt/exception/exc_tag.h"

ToolDevice::ToolDevice()
    : device_(CreateFileA("\\\\.\\tsr_tg", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                          nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)) {
  if (!device_) XDT_RAISE("Can't open tool device driver");
}

std::uint32_t ToolDevice::Ioctl(std::uint32_t request, void* buffer, std::uint32_t size,
                                std::uint32_t* status) {
  TgPacket<2> packet{{request, 0, 0, 2, 0},
                     {MakeTgBuffer(buffer, size, 0), MakeTgBuffer(buffer, size, deviceWrites)}};
  DWORD returned = 0;
  const BOOL sent = DeviceIoControl(device_.get(), IOCTL_TG_REQUEST, &packet, sizeof packet, &packet,
                                    sizeof packet, &returned, nullptr);
  if (status != nullptr) *status = sent ? packet.header.status : GetLastError();
  return sent ? returned : 0;
}
