#include "base/base64.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>

#include "test_env.h"

namespace qaaisp {
namespace {

std::string Decode(std::string_view text) {
  std::string out;
  return Base64DecodeToString(text, &out) ? out : "<refused>";
}

TEST(Base64Test, EncodesWithPaddingAndRefusesSmallOut) {
  EXPECT_EQ(Base64EncodeToString(""), "");
  EXPECT_EQ(Base64EncodeToString("M"), "TQ==");
  EXPECT_EQ(Base64EncodeToString("Ma"), "TWE=");
  EXPECT_EQ(Base64EncodeToString("Man"), "TWFu");
  EXPECT_EQ(Base64EncodeToString(std::string("\xff\xfe\x00", 3)), "//4A");
  char out[8];
  EXPECT_EQ(Base64Encode("Man", 3, out, 3), -1);
  EXPECT_EQ(Base64Encode("Man!", 4, out, 8), 8);
  EXPECT_EQ(std::string(out, 8), "TWFuIQ==");
}

TEST(Base64Test, DecoderSkipsWhiteSpaceAnywhere) {
  EXPECT_EQ(Decode("TWFu\r\nTQ=="), "ManM");
  EXPECT_EQ(Decode(" T W\tF u "), "Man");
  EXPECT_EQ(Decode("TQ =\n= \r\n"), "M");
  EXPECT_EQ(Decode(""), "");
  EXPECT_EQ(Decode(" \r\n"), "");
}

TEST(Base64Test, DecoderRefusals) {
  for (const char* bad : {
           "TQ=",       // a group of two needs two pads
           "TR==",      // left-over bits not zero
           "TWF=",      // likewise after one pad
           "TWE",       // ends mid-group without padding
           "T",         //
           "=",         // padding in state 0
           "T===",      // padding in state 1
           "TQ==TWFu",  // padding in the middle
           "TWE=x",     // only white space may follow
           "TQ== =",    //
           "TW-u",      // outside the alphabet
           "TWFu\x80",  //
       }) {
    uint8_t out[16];
    EXPECT_EQ(Base64Decode(bad, out, sizeof out), -1) << bad;
  }
  uint8_t out[16];
  EXPECT_EQ(Base64Decode(std::string_view("TW\0u", 4), out, sizeof out), -1);
}

TEST(Base64Test, CountingSkipsTheLeftOverBitsCheckButNotTheRest) {
  EXPECT_EQ(Base64Decode("TR==", nullptr, 0), 1);
  EXPECT_EQ(Base64Decode("TWFuTWE=", nullptr, 0), 5);
  EXPECT_EQ(Base64Decode("TQ=", nullptr, 0), -1);
  EXPECT_EQ(Base64Decode("TW!u", nullptr, 0), -1);
}

TEST(Base64Test, DecoderRefusesToWritePastOut) {
  uint8_t out[3];
  EXPECT_EQ(Base64Decode("TWFu", out, 3), 3);
  EXPECT_EQ(Base64Decode("TWFuTQ==", out, 3), -1);
  EXPECT_EQ(Base64Decode("TQ==", out, 0), -1);
}

TEST(Base64Test, AllocatingForms) {
  char* text = nullptr;
  ASSERT_EQ(Base64EncodeAlloc("Ma", 2, &text), 4);
  EXPECT_STREQ(text, "TWE=");
  std::free(text);
  uint8_t* bytes = nullptr;
  ASSERT_EQ(Base64DecodeAlloc("TWE=\r\n", &bytes), 2);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(bytes), 2), "Ma");
  std::free(bytes);
  EXPECT_EQ(Base64DecodeAlloc("TR==", &bytes), -1);
  EXPECT_EQ(bytes, nullptr);
}

// Random data of every length from 0 to 300 against the coreutils encoder,
// both unwrapped and in its folded lines.
TEST(Base64Test, AgreesWithCoreutils) {
  testing::TempDir dir;
  std::mt19937 random(20240501);
  std::vector<std::string> data;
  for (size_t n = 0; n <= 300; ++n) {
    std::string bytes(n, '\0');
    for (char& c : bytes) c = static_cast<char>(random() & 0xff);
    testing::WriteFile(dir.Sub("d" + std::to_string(n)), bytes);
    data.push_back(bytes);
  }
  const std::string script = "cd '" + dir.path() +
                             "' && for i in $(seq 0 300); do base64 -w0 d$i > e$i && "
                             "base64 d$i > w$i || exit 1; done";
  if (std::system(script.c_str()) != 0) GTEST_SKIP() << "no base64 command";
  for (size_t n = 0; n <= 300; ++n) {
    const std::string flat = testing::ReadFile(dir.Sub("e" + std::to_string(n)));
    const std::string wrapped = testing::ReadFile(dir.Sub("w" + std::to_string(n)));
    EXPECT_EQ(Base64EncodeToString(data[n]), flat) << n;
    EXPECT_EQ(Decode(flat), data[n]) << n;
    EXPECT_EQ(Decode(wrapped), data[n]) << n;
    EXPECT_EQ(Base64Decode(wrapped, nullptr, 0), static_cast<int64_t>(n));
  }
}

}  // namespace
}  // namespace qaaisp
