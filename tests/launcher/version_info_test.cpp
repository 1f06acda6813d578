// The version information to the byte, built here a second time from literal lengths.
#include "launcher/version_info.h"

#include <gtest/gtest.h>

#include "host/text.h"
#include "host/wire.h"
#include "launcher/resop.h"
#include "support/module_fixture.h"

namespace {

using host::Bytes;

void PutPadded(Bytes& bytes, const std::string& text) {
  for (const char c : text) host::PutU16(bytes, static_cast<unsigned char>(c));
  host::PutU16(bytes, 0);
  bytes.resize((bytes.size() + 3) / 4 * 4);
}

void PutBlock(Bytes& bytes, std::uint32_t length, std::uint32_t valueLength, std::uint32_t type,
              const std::string& key) {
  host::PutU16(bytes, length);
  host::PutU16(bytes, valueLength);
  host::PutU16(bytes, type);
  PutPadded(bytes, key);
}

class VersionInformation : public ModuleTest {};

TEST_F(VersionInformation, NamesTheApplicationInSevenHundredBytes) {
  Bytes expected;
  PutBlock(expected, 700, 52, 0, "VS_VERSION_INFO");
  EXPECT_EQ(expected.size(), 40u);
  for (const std::uint32_t field :
       {0xFEEF04BDu, 0x10000u, 0x10000u, 0u, 0x10000u, 0u, 0x20u, 0x20u, 4u, 1u, 0u, 0u, 0u}) {
    host::PutU32(expected, field);
  }
  PutBlock(expected, 540, 0, 1, "StringFileInfo");
  PutBlock(expected, 504, 0, 1, "040904B0");
  const struct {
    std::uint32_t length, characters;
    const char *key, *value;
  } strings[] = {
      {84, 29, "Comments", "Tessarine Shared Application"},
      {112, 39, "CompanyName", "Tessarine Software International, Inc."},
      {64, 12, "FileDescription", "Chess (Mac)"},
      {48, 8, "FileVersion", "1.0.0.0"},
      {80, 23, "ProductName", "Tessarine Tools Center"},
      {92, 29, "SpecialBuild", "Tessarine Shared Application"},
  };
  for (const auto& s : strings) {
    PutBlock(expected, s.length, s.characters, 1, s.key);
    PutPadded(expected, s.value);
  }
  EXPECT_EQ(expected.size(), 92u + 540u);
  PutBlock(expected, 68, 0, 1, "VarFileInfo");
  PutBlock(expected, 36, 4, 0, "Translation");
  host::PutU32(expected, 0x04B00409);
  EXPECT_EQ(expected.size(), 700u);

  const WideString file = Scratch() + TEXT("\\chess.exe");
  ASSERT_TRUE(CopyFileW(TemplateFile().c_str(), file.c_str(), FALSE));
  const HANDLE update = BeginUpdateResourceW(file.c_str(), FALSE);
  WriteVersionInfo(update, Info("Chess"));
  ASSERT_TRUE(EndUpdateResourceW(update, FALSE));
  const std::string bytes(reinterpret_cast<const char*>(expected.data()), expected.size());
  EXPECT_EQ(ResourceData(file, 16, 1, 0x0400), bytes);
}

TEST_F(VersionInformation, LengthsFollowTheValues) {
  const struct {
    const char* value;
    std::uint32_t block;  // length of the String block of a FileDescription
  } cases[] = {{"", 44}, {"x", 44}, {"xy", 48}, {"NineChars (Mac)", 72}, {"TenLetters (Mac)", 76}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.value);
    const WideString value = host::Widen(c.value);
    const Bytes bytes = BuildVersionInfo({}, {{TEXT("FileDescription"), value}}, {{1, 2}, {3, 4}});
    ASSERT_EQ(bytes.size(), 92u + 36 + 24 + c.block + 72);
    const std::size_t block = 92 + 36 + 24, var = block + c.block + 32;
    const struct {
      std::size_t at;
      std::size_t expected;
    } fields[] = {
        {0, bytes.size()},
        {92, 36 + 24 + c.block},
        {92 + 36, 24 + c.block},
        {block, c.block},
        {block + 2, value.size() + 1},
        {var - 32, 72},
        {var, 40},
        {var + 2, 8},
        {var + 32, 1},
        {var + 34, 2},
        {var + 36, 3},
        {var + 38, 4},
    };
    for (const auto& f : fields) EXPECT_EQ(host::GetU16(bytes, f.at), f.expected) << "offset " << f.at;
  }
}

}  // namespace
