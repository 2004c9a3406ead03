#include "index/phone_numbers.h"

#include <gtest/gtest.h>

namespace qaaisp {
namespace {

TEST(PhoneNumbersTest, NormalisingDropsPunctuationAndBlanks) {
  EXPECT_EQ(NormalizePhoneNumber("(04) 1234-5678"), "0412345678");
  EXPECT_EQ(NormalizePhoneNumber("+61 (4) 12-34 5678"), "+61412345678");
  EXPECT_EQ(NormalizePhoneNumber("()- "), "");
  EXPECT_EQ(NormalizePhoneNumber("04.12/34"), "04.12/34") << "only four characters go";
}

TEST(PhoneNumbersTest, NationalAndInternationalFormsMatchEitherWay) {
  EXPECT_EQ(ComparePhoneNumbers("0412345678", "+61412345678"), 0);
  EXPECT_EQ(ComparePhoneNumbers("+61412345678", "0412345678"), 0);
  EXPECT_EQ(ComparePhoneNumbers("0412345678", "+61 (412) 345-678"), 0);
  EXPECT_EQ(ComparePhoneNumbers("0412345678", "+1412345678"), 0) << "one-digit country code";
  EXPECT_EQ(ComparePhoneNumbers("0412345678", "+353412345678"), 0) << "three digits";
  EXPECT_NE(ComparePhoneNumbers("0412345678", "+3531412345678"), 0) << "four is too long";
  EXPECT_NE(ComparePhoneNumbers("0412345678", "+61412345679"), 0);
  EXPECT_NE(ComparePhoneNumbers("0123456789", "+1"), 0) << "b shorter than a";
  EXPECT_NE(ComparePhoneNumbers("+1", "0123456789"), 0);
}

TEST(PhoneNumbersTest, SameFirstCharacterComparesBytes) {
  EXPECT_EQ(ComparePhoneNumbers("0412345678", "(04) 1234 5678"), 0);
  EXPECT_LT(ComparePhoneNumbers("0412", "0413"), 0);
  EXPECT_GT(ComparePhoneNumbers("0413", "0412"), 0);
  EXPECT_EQ(ComparePhoneNumbers("", "( )"), 0);
  EXPECT_NE(ComparePhoneNumbers("", "0"), 0);
  EXPECT_NE(ComparePhoneNumbers("5551234", "0555"), 0);
}

}  // namespace
}  // namespace qaaisp
