// Header and structure parsing of 10,000 generated messages (2 to 20 KB,
// mixed multipart, with encoded words in their headers), by the store's
// reader and, where it is installed, by GMime 3 over the same set in the
// same run. Both sides decode every header value.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "mime/header_fields.h"
#include "mime/message_reader.h"

#if QAAISP_HAVE_GMIME
#include <gmime/gmime.h>
#endif

namespace {

constexpr int kMessageCount = 10000;
constexpr size_t kSmallest = 2 * 1024;
constexpr size_t kLargest = 20 * 1024;

class Generator {
 public:
  explicit Generator(uint32_t seed) : random_(seed) {}

  std::string Message() {
    const size_t target = kSmallest + Below(kLargest - kSmallest);
    std::string m = Header();
    switch (Below(10)) {
      case 0:
      case 1:  // a single text part
        m += "Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: "
             "quoted-printable\r\n\r\n";
        while (m.size() < target) m += QpLine();
        return m;
      case 2:
      case 3:
      case 4:  // text and HTML alternatives
        m += "Content-Type: multipart/alternative;\r\n\tboundary=\"" + Boundary(0) + "\"\r\n\r\n";
        m += "This is a multi-part message in MIME format.\r\n\r\n";
        Alternative(&m, Boundary(0), target);
        return m;
      default:  // mixed: alternatives, attachments, sometimes a forwarded message
        break;
    }
    m += "Content-Type: multipart/mixed; boundary=\"" + Boundary(1) + "\"\r\n\r\n";
    m += "--" + Boundary(1) + "\r\nContent-Type: multipart/alternative; boundary=\"" + Boundary(2) +
         "\"\r\n\r\n";
    Alternative(&m, Boundary(2), m.size() + (target - std::min(target, m.size())) / 3);
    if (Below(4) == 0) {
      m += "--" + Boundary(1) + "\r\nContent-Type: message/rfc822\r\n\r\n" + Header() +
           "Content-Type: text/plain; charset=us-ascii\r\n\r\n";
      for (int i = 0; i < 8; ++i) m += PlainLine();
    }
    while (m.size() < target) Attachment(&m, Boundary(1), target);
    m += "--" + Boundary(1) + "--\r\n";
    return m;
  }

 private:
  size_t Below(size_t n) { return static_cast<size_t>(random_() % n); }

  std::string Word() {
    static const char* const kWords[] = {"report",  "meeting",  "quarter", "figures", "draft",
                                         "invoice", "schedule", "review",  "budget",  "notes",
                                         "project", "update",   "agenda",  "summary", "team"};
    return kWords[Below(sizeof kWords / sizeof kWords[0])];
  }

  std::string Boundary(int level) {
    return "----=_Part_" + std::to_string(level) + "_" + std::to_string(serial_) + ".1700000000";
  }

  std::string EncodedSubject() {
    switch (Below(4)) {
      case 0:
        return "=?UTF-8?Q?" + Word() + "_=E2=80=93_caf=C3=A9_" + Word() + "?=";
      case 1:
        return "=?UTF-8?B?w6l0w6kgcmVwb3J0IOKAkyBzdW1tYXJ5?= =?UTF-8?B?IGRlIGzigJnDqXF1aXBl?=";
      case 2:
        return "Re: =?ISO-8859-1?Q?Gr=FC=DFe_aus_M=FCnchen?= " + Word();
      default:
        return "Re: " + Word() + " " + Word() + " " + Word();
    }
  }

  std::string Header() {
    ++serial_;
    std::string h;
    const size_t hops = 2 + Below(4);
    for (size_t i = 0; i < hops; ++i) {
      h += "Received: from mx" + std::to_string(Below(100)) +
           ".example.net (mx.example.net [192.0.2." + std::to_string(Below(255)) +
           "])\r\n\tby mail.example.org with ESMTPS id " + std::to_string(random_()) +
           "\r\n\tfor <ann@example.org>; Tue, 14 Nov 2023 10:" + std::to_string(10 + Below(50)) +
           ":00 +0000\r\n";
    }
    if (Below(2) == 0) {
      h += "DKIM-Signature: v=1; a=rsa-sha256; c=relaxed/relaxed; d=example.net; s=s1;\r\n"
           "\th=from:to:subject:date:message-id;\r\n"
           "\tbh=47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=;\r\n"
           "\tb=dzdVyOfAKCdLXdJOc9G2q8LoXSlEniSbav+yuU4zGeeruD00lszZVoG4ZHRNiYzR\r\n";
    }
    h += "From: " +
         std::string(Below(2) ? "=?UTF-8?Q?J=C3=BCrgen_M=C3=BCller?=" : "\"Ann Example\"") +
         " <sender" + std::to_string(Below(1000)) + "@example.net>\r\n";
    h += "To: team@example.org, =?UTF-8?B?w4lsb2RpZQ==?= <elodie@example.org>\r\n";
    if (Below(3) == 0) h += "Cc: bob@example.org,\r\n carol@example.org\r\n";
    h += "Subject: " + EncodedSubject() + "\r\n";
    h += "Date: Tue, 14 Nov 2023 10:" + std::to_string(10 + Below(50)) + ":33 +0100\r\n";
    h += "Message-ID: <" + std::to_string(random_()) + "." + std::to_string(serial_) +
         "@mail.example.net>\r\n";
    h += "MIME-Version: 1.0\r\nX-Mailer: Generator 1.0\r\n";
    return h;
  }

  std::string PlainLine() {
    std::string line;
    while (line.size() < 60) line += Word() + " ";
    return line + "\r\n";
  }

  std::string QpLine() {
    std::string line;
    while (line.size() < 60) line += Below(6) ? Word() + " " : "caf=C3=A9 ";
    return line + "=\r\n";
  }

  void Alternative(std::string* m, const std::string& boundary, size_t target) {
    *m += "--" + boundary +
          "\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: "
          "quoted-printable\r\n\r\n";
    size_t half = m->size() + (target - std::min(target, m->size())) / 2;
    do *m += QpLine();
    while (m->size() < half);
    *m += "\r\n--" + boundary + "\r\nContent-Type: text/html; charset=utf-8\r\n\r\n<html><body>";
    do *m += "<p>" + PlainLine() + "</p>";
    while (m->size() < target);
    *m += "</body></html>\r\n--" + boundary + "--\r\n";
  }

  void Attachment(std::string* m, const std::string& boundary, size_t target) {
    const std::string name = Word() + "-" + std::to_string(Below(100)) + ".pdf";
    *m += "--" + boundary + "\r\nContent-Type: application/pdf; name=\"" + name +
          "\"\r\nContent-Disposition: attachment; filename=\"" + name +
          "\"\r\nContent-Transfer-Encoding: base64\r\n\r\n";
    static const char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const size_t end = std::min(target, m->size() + 2048 + Below(6000));
    do {
      for (int i = 0; i < 76; ++i) m->push_back(kAlphabet[Below(64)]);
      *m += "\r\n";
    } while (m->size() < end);
  }

  std::mt19937 random_;
  int serial_ = 0;
};

const std::vector<std::string>& Messages() {
  static const std::vector<std::string> messages = [] {
    Generator generator(20231114);
    std::vector<std::string> out;
    out.reserve(kMessageCount);
    for (int i = 0; i < kMessageCount; ++i) out.push_back(generator.Message());
    return out;
  }();
  return messages;
}

int64_t TotalBytes() {
  int64_t total = 0;
  for (const std::string& m : Messages()) total += static_cast<int64_t>(m.size());
  return total;
}

// The store's reader: line ends, top header, the list of parts, and every
// header field RFC 2047-decoded into wide text.
size_t ParseWithReader(const std::string& text) {
  qaaisp::MessageReader reader(text, false, true, true);
  std::vector<qaaisp::HeaderField> fields;
  qaaisp::ParseHeaderFields(reader.header(), &fields, qaaisp::kHeaderFieldsDecoded);
  return reader.parts().size() + fields.size();
}

#if QAAISP_HAVE_GMIME
// GMime's full parse of the same text, with every header value of the
// message decoded.
size_t ParseWithGMime(const std::string& text) {
  GMimeStream* stream = g_mime_stream_mem_new_with_buffer(text.data(), text.size());
  GMimeParser* parser = g_mime_parser_new_with_stream(stream);
  GMimeMessage* message = g_mime_parser_construct_message(parser, nullptr);
  size_t count = 0;
  if (message) {
    GMimeHeaderList* headers = g_mime_object_get_header_list(GMIME_OBJECT(message));
    const int n = g_mime_header_list_get_count(headers);
    for (int i = 0; i < n; ++i) {
      const char* value = g_mime_header_get_value(g_mime_header_list_get_header_at(headers, i));
      count += value ? 1 : 0;
    }
    g_object_unref(message);
  }
  g_object_unref(parser);
  g_object_unref(stream);
  return count;
}
#endif

// A benchmark of a parser that lists nothing would measure nothing: every
// generated message must come apart into its parts.
bool EveryMessageHasParts() {
  for (const std::string& m : Messages()) {
    qaaisp::MessageReader reader(m, false, true, true);
    if (reader.parts().empty() || reader.parts().back().Body.empty()) return false;
  }
  return true;
}

void BM_ReaderParse(benchmark::State& state) {
  const std::vector<std::string>& messages = Messages();
  if (!EveryMessageHasParts()) state.SkipWithError("a generated message did not parse");
  for (auto _ : state) {
    for (const std::string& m : messages) benchmark::DoNotOptimize(ParseWithReader(m));
  }
  state.SetItemsProcessed(state.iterations() * kMessageCount);
  state.SetBytesProcessed(state.iterations() * TotalBytes());
}
BENCHMARK(BM_ReaderParse)->Unit(benchmark::kMillisecond);

#if QAAISP_HAVE_GMIME
void BM_GMimeParse(benchmark::State& state) {
  g_mime_init();
  const std::vector<std::string>& messages = Messages();
  for (auto _ : state) {
    for (const std::string& m : messages) benchmark::DoNotOptimize(ParseWithGMime(m));
  }
  state.SetItemsProcessed(state.iterations() * kMessageCount);
  state.SetBytesProcessed(state.iterations() * TotalBytes());
}
BENCHMARK(BM_GMimeParse)->Unit(benchmark::kMillisecond);

// Both parsers over the whole set in each iteration, alternating, so the
// ratio is measured under the same conditions; "speedup" is GMime's time
// over the reader's.
void BM_ReaderVersusGMime(benchmark::State& state) {
  g_mime_init();
  const std::vector<std::string>& messages = Messages();
  std::chrono::duration<double> reader_time{0};
  std::chrono::duration<double> gmime_time{0};
  for (auto _ : state) {
    auto start = std::chrono::steady_clock::now();
    for (const std::string& m : messages) benchmark::DoNotOptimize(ParseWithReader(m));
    auto middle = std::chrono::steady_clock::now();
    for (const std::string& m : messages) benchmark::DoNotOptimize(ParseWithGMime(m));
    auto end = std::chrono::steady_clock::now();
    reader_time += middle - start;
    gmime_time += end - middle;
  }
  state.counters["speedup"] = gmime_time.count() / reader_time.count();
  state.counters["reader_msgs_per_s"] =
      static_cast<double>(state.iterations()) * kMessageCount / reader_time.count();
  state.counters["gmime_msgs_per_s"] =
      static_cast<double>(state.iterations()) * kMessageCount / gmime_time.count();
}
BENCHMARK(BM_ReaderVersusGMime)->Unit(benchmark::kMillisecond)->MinTime(2.0);
#endif

}  // namespace

BENCHMARK_MAIN();
