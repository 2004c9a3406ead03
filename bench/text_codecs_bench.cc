// Throughput of the shared text routines that run per message: base64 of
// attachments, header dates, charset lookup and conversion. A plain copy of
// the same bytes is the yardstick.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>

#include "base/base64.h"
#include "base/charsets.h"
#include "base/dates.h"

namespace {

std::string RandomBytes(size_t n) {
  std::mt19937 random(1);
  std::string bytes(n, '\0');
  for (char& c : bytes) c = static_cast<char>(random());
  return bytes;
}

// Base64 as mail carries it: 76-character lines.
std::string FoldedBase64(const std::string& bytes) {
  const std::string flat = qaaisp::Base64EncodeToString(bytes);
  std::string folded;
  for (size_t i = 0; i < flat.size(); i += 76) folded += flat.substr(i, 76) + "\r\n";
  return folded;
}

void BM_Copy(benchmark::State& state) {
  const std::string bytes = RandomBytes(1 << 20);
  std::string out(bytes.size(), '\0');
  for (auto _ : state) {
    std::memcpy(out.data(), bytes.data(), bytes.size());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * bytes.size());
}
BENCHMARK(BM_Copy);

void BM_Base64Encode(benchmark::State& state) {
  const std::string bytes = RandomBytes(1 << 20);
  std::string out(bytes.size() * 4 / 3 + 4, '\0');
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        qaaisp::Base64Encode(bytes.data(), bytes.size(), out.data(), out.size()));
  }
  state.SetBytesProcessed(state.iterations() * bytes.size());
}
BENCHMARK(BM_Base64Encode);

void BM_Base64DecodeFolded(benchmark::State& state) {
  const std::string text = FoldedBase64(RandomBytes(1 << 20));
  std::string out(text.size(), '\0');
  for (auto _ : state) {
    benchmark::DoNotOptimize(qaaisp::Base64Decode(text, out.data(), out.size()));
  }
  state.SetBytesProcessed(state.iterations() * text.size());
}
BENCHMARK(BM_Base64DecodeFolded);

void BM_NormaliseHeaderDate(benchmark::State& state) {
  char out[64];
  for (auto _ : state) {
    qaaisp::NormaliseHeaderDate("Fri, 29 Jun 2012 05:06:37 -0700 (PDT)", out, sizeof out);
    benchmark::DoNotOptimize(out);
  }
}
BENCHMARK(BM_NormaliseHeaderDate);

void BM_CodePageOfCharset(benchmark::State& state) {
  const char* names[] = {"utf-8", "ISO-8859-1", "windows-1252", "x-iscii-pa", "unknown-8bit"};
  size_t i = 0;
  for (auto _ : state) benchmark::DoNotOptimize(qaaisp::CodePageOfCharset(names[i++ % 5]));
}
BENCHMARK(BM_CodePageOfCharset);

void BM_NarrowToWideUtf8(benchmark::State& state) {
  std::string text;
  while (text.size() < 4096)
    text +=
        "Gr\xc3\xbc\xc3\x9f"
        "e aus K\xc3\xb6ln, ";
  std::u16string wide;
  for (auto _ : state) benchmark::DoNotOptimize(qaaisp::NarrowToWide(text, &wide, 65001));
  state.SetBytesProcessed(state.iterations() * text.size());
}
BENCHMARK(BM_NarrowToWideUtf8);

}  // namespace

BENCHMARK_MAIN();
