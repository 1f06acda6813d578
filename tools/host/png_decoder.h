// stb_image with what the host tool needs of it: PNG, from memory. Both includers must see the same options.
#pragma once

#define STBI_ONLY_PNG
#define STBI_NO_STDIO
#include <stb/stb_image.h>
