// stb_image_write with what the host tool needs of it: into memory. Both includers must see the same options.
#pragma once

#define STBI_WRITE_NO_STDIO
#include <stb/stb_image_write.h>
