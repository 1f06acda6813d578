// What the fuzz targets share: the check of a property, a guest of the process' own, and the mutation of
// item containers.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed);

namespace fuzz {

// Ends the process when the property does not hold, which the fuzzer reports with the input.
void Check(bool holds, const std::string& what);

// An empty folder for drive C of this process' guest, gone at its end.
std::filesystem::path GuestFolder();

// Mutates the items that follow `prefix` bytes: whole items come, go and change places, values change with
// their sizes kept right, and now and then a header lies. Returns the new size.
std::size_t MutateItems(std::uint8_t* data, std::size_t size, std::size_t maxSize, std::size_t prefix,
                        unsigned seed);

}  // namespace fuzz
