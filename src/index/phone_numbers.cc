#include "index/phone_numbers.h"

#include "base/failure_guard.h"
#include "index/index_source_names.h"

namespace qaaisp {
namespace {

int ByteCompare(std::string_view a, std::string_view b) {
  int c = a.compare(b);
  return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

// international starts with "+" and national with "0": the country code is
// what international has beyond national's length, plus its "+"; national
// without its leading "0" follows it.
int CompareWithCountryCode(std::string_view national, std::string_view international) {
  if (international.size() < national.size() || international.size() - national.size() > 3) {
    return 1;
  }
  std::string joined(international.substr(0, international.size() - national.size() + 1));
  if (national.size() > 2) joined.append(national.substr(1));
  return ByteCompare(joined, international);
}

char First(std::string_view text) { return text.empty() ? '\0' : text.front(); }

}  // namespace

std::string NormalizePhoneNumber(std::string_view text) {
  LineTrace trace = 0;
  return Guarded("NormalizePhoneNumber", kStoreIndexTypeSource, __LINE__, trace, [&] {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
      if (c != '(' && c != ')' && c != '-' && c != ' ') out.push_back(c);
    }
    return out;
  });
}

int ComparePhoneNumbers(std::string_view a, std::string_view b) {
  LineTrace trace = 0;
  return Guarded("ComparePhoneNumbers", kStoreIndexTypeSource, __LINE__, trace, [&] {
    std::string normal_b = NormalizePhoneNumber(b);
    if (First(a) == First(normal_b)) return ByteCompare(a, normal_b);
    if (First(normal_b) == '+' && First(a) == '0') return CompareWithCountryCode(a, normal_b);
    if (First(a) == '+' && First(normal_b) == '0') return CompareWithCountryCode(normal_b, a);
    return 1;
  });
}

}  // namespace qaaisp
