// How the control codes of devices are put together.
#pragma once

#include <windef.h>

#define METHOD_BUFFERED 0u
#define FILE_READ_ACCESS 1u
#define FILE_WRITE_ACCESS 2u
#define CTL_CODE(type, function, method, access) \
  (((type) << 16) | ((access) << 14) | ((function) << 2) | (method))
