// Access rights and constants shared by the kernel, file and registry families.
#pragma once

#include <windef.h>

#define DELETE 0x00010000u
#define READ_CONTROL 0x00020000u
#define WRITE_DAC 0x00040000u
#define SYNCHRONIZE 0x00100000u
#define GENERIC_READ 0x80000000u
#define GENERIC_WRITE 0x40000000u

#define STATUS_PENDING 0x00000103u
#define STATUS_WAIT_0 0u
#define INFINITE 0xFFFFFFFFu

#define LANG_NEUTRAL 0x00
