// PNG files of what the guest and the catalogue hold as bitmaps. Failures are std::runtime_errors that name
// the file.
#pragma once

#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "guest/launcher_view.h"
#include "host/catalogue.h"

namespace host {

// A whole PNG file of what the guest gets, and of what its launcher has got.
std::string PngOf(const Icon& icon);
std::string PngOf(const LauncherIcon& icon);

void WriteFileWhole(const std::filesystem::path& file, std::string_view bytes);

// An application as a catalogue has it, all but its icons.
nlohmann::ordered_json FieldsOf(const Application& app);
// Writes a catalogue so that Catalogue::Load reads the same again; `folder` is made, and emptied before.
void SaveCatalogue(const Catalogue& catalogue, const std::filesystem::path& folder);

}  // namespace host
