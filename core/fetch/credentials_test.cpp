#include "core/fetch/credentials.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>

#include "platform/atomic_file.hpp"
#include "platform/errors.hpp"
#include "platform/testing/scratch_folder.hpp"

namespace ombrine {
namespace {

namespace fs = std::filesystem;

TEST(CredentialsTest, TokenIsTheXorOfBothTablesWithTheShortOneRepeating) {
  std::array<std::uint8_t, 32> table32{};
  std::array<std::uint8_t, 15> table15{};
  const std::string token = "abcdefghijklmnopqrstuvwxyz012345";
  for (size_t i = 0; i < 15; ++i) table15[i] = static_cast<std::uint8_t>(0x5a + i * 7);
  for (size_t i = 0; i < 32; ++i) table32[i] = static_cast<std::uint8_t>(token[i]) ^ table15[i % 15];
  auto assembled = assembleToken(table32, table15);
  ASSERT_TRUE(assembled);
  EXPECT_EQ(assembled->reveal(), token);
  // Equal tables XOR to zero bytes: no token configured.
  std::array<std::uint8_t, 32> same{};
  for (size_t i = 0; i < 32; ++i) same[i] = table15[i % 15];
  EXPECT_FALSE(assembleToken(same, table15));
}

class CredentialFileTest : public testing::Test {
 protected:
  void SetUp() override {
    ::unsetenv("OMBRINE_FORECA_TOKEN");
    ::unsetenv("OMBRINE_OPENWEATHER_KEY");
    ::unsetenv("OMBRINE_METEOSTAT_KEY");
  }
  void TearDown() override { ::unsetenv("OMBRINE_FORECA_TOKEN"); }
  const ScratchFolder scratch_{"ombrine-credentials"};
  const fs::path dir_ = scratch_.path();
};

TEST_F(CredentialFileTest, SourcesAndRefusals) {
  const fs::path file = dir_ / "credentials";
  writeFileAtomically(file, "# comment\n\nforeca_token = from-file \nopenweather_key=ow\nmeteostat_key = ms\n", 0600);
  auto loaded = Credentials::load(file);
  ASSERT_TRUE(loaded.forecaToken);
  EXPECT_EQ(loaded.forecaToken->reveal(), "from-file");
  EXPECT_EQ(loaded.openWeatherKey->reveal(), "ow");
  EXPECT_EQ(loaded.meteostatKey->reveal(), "ms");
  ::setenv("OMBRINE_METEOSTAT_KEY", "ms-env", 1);
  EXPECT_EQ(Credentials::load(file).meteostatKey->reveal(), "ms-env");
  ::unsetenv("OMBRINE_METEOSTAT_KEY");

  // The environment wins over the file.
  ::setenv("OMBRINE_FORECA_TOKEN", "from-env", 1);
  EXPECT_EQ(Credentials::load(file).forecaToken->reveal(), "from-env");

  // A file others can read is passed over while the environment holds a credential: none of
  // its values is used.
  writeFileAtomically(file, "foreca_token = topsecret\nopenweather_key = ow\n", 0644);
  loaded = Credentials::load(file);
  EXPECT_EQ(loaded.forecaToken->reveal(), "from-env");
  EXPECT_FALSE(loaded.openWeatherKey);
  ::unsetenv("OMBRINE_FORECA_TOKEN");

  // Otherwise it is refused, and the message does not contain the secret.
  try {
    Credentials::load(file);
    FAIL() << "a world-readable credential file was accepted";
  } catch (const FileError& error) {
    EXPECT_EQ(std::string(error.what()).find("topsecret"), std::string::npos);
    EXPECT_NE(std::string(error.what()).find("chmod 600"), std::string::npos);
  }

  // A malformed line names its number, never its content.
  writeFileAtomically(file, "foreca_token = a\nsecretwithoutequals\n", 0600);
  try {
    Credentials::load(file);
    FAIL() << "a malformed line was accepted";
  } catch (const FileError& error) {
    EXPECT_NE(std::string(error.what()).find(":2:"), std::string::npos);
    EXPECT_EQ(std::string(error.what()).find("secretwithoutequals"), std::string::npos);
  }

  // A missing file is simply no source.
  EXPECT_NO_THROW(Credentials::load(dir_ / "absent"));
}

}  // namespace
}  // namespace ombrine
