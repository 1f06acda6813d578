// The PNG decoder, compiled once. It decodes from memory only: paths and files are the caller's business.
#define STB_IMAGE_IMPLEMENTATION
#include "host/png_decoder.h"
