// The PNG decoder and encoder, compiled once. They work in memory only: paths and files are the caller's
// business.
#define STBI_NO_THREAD_LOCALS  // one thread reads images
#define STB_IMAGE_IMPLEMENTATION
#include "host/png_decoder.h"
#define STB_IMAGE_WRITE_IMPLEMENTATION
#include "host/png_encoder.h"
