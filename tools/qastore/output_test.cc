// The output formats and the progress display, in process: what scripts
// parse must survive any text a store holds, and progress must never flood
// a terminal nor leave a half line behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "qastore/output.h"
#include "qastore/progress.h"
#include "test_env.h"

namespace qaaisp::qastore {
namespace {

Result Rows() {
  Result r;
  r.records = Json::array();
  r.records.push_back(Json{{"UID", 1}, {"SUBJECT", "Grüße aus München"}, {"FLAGS", "\\Seen"}});
  r.records.push_back(Json{{"UID", 12}, {"SUBJECT", "tab\there \"quoted\""}, {"EXTRA", nullptr}});
  r.summary = "2 rows";
  return r;
}

TEST(OutputTest, LineFormatsKeepOneRecordALineWhateverTheText) {
  const std::string tab = Render(Rows(), OutputFormat::kTab);
  EXPECT_EQ(tab,
            "UID\tSUBJECT\tFLAGS\tEXTRA\n"
            "1\tGrüße aus München\t\\Seen\t\n"
            "12\ttab\\there \"quoted\"\t\t-\n");
  const std::string flow = Render(Rows(), OutputFormat::kFlow);
  EXPECT_EQ(flow,
            "UID=1 SUBJECT=\"Grüße aus München\" FLAGS=\"\\\\Seen\"\n"
            "UID=12 SUBJECT=\"tab\\there \\\"quoted\\\"\" EXTRA=-\n");
}

TEST(OutputTest, TablesAlignByCharactersAndClipLongCells) {
  Result r = Rows();
  r.records[1]["SUBJECT"] = std::string(100, 'x');
  const std::string table = Render(r, OutputFormat::kTable);
  const std::string first = table.substr(0, table.find('\n'));
  EXPECT_EQ(first, "UID  SUBJECT" + std::string(kMaxCellWidth - 7 + 2, ' ') + "FLAGS  EXTRA");
  // "Grüße aus München" is 17 characters in 20 bytes: the next column
  // starts where it does on the header line.
  const size_t second_start = table.find('\n') + 1;
  const std::string second =
      table.substr(second_start, table.find('\n', second_start) - second_start);
  EXPECT_EQ(second.find("\\Seen"), first.find("FLAGS") + 3);
  EXPECT_NE(table.find(std::string(kMaxCellWidth - 3, 'x') + "..."), std::string::npos);
  EXPECT_EQ(table.find(std::string(kMaxCellWidth - 2, 'x')), std::string::npos);
  EXPECT_EQ(table.substr(table.size() - 7), "2 rows\n");

  Result single;
  single.records = Json{{"messages", 3}, {"last_uid", 9}};
  EXPECT_EQ(Render(single, OutputFormat::kTable), "messages  3\nlast_uid  9\n");
}

TEST(OutputTest, JsonStaysOneValidDocumentEvenForBrokenBytes) {
  Result r = Rows();
  r.records[0]["SUBJECT"] = std::string("bad \xff\xfe bytes");
  const std::string json = Render(r, OutputFormat::kJson);
  const Json parsed = Json::parse(json);
  EXPECT_EQ(parsed.size(), 2u);
  EXPECT_EQ(parsed[1]["UID"], 12);
  EXPECT_EQ(json.find("2 rows"), std::string::npos) << "the summary is for people only";

  r.document = Json{{"file", "x"}, {"rows", r.records}};
  EXPECT_EQ(Json::parse(Render(r, OutputFormat::kJson))["file"], "x");
}

std::string Drain(std::FILE* f) {
  std::fflush(f);
  std::rewind(f);
  std::string text;
  char buffer[4096];
  size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) text.append(buffer, n);
  return text;
}

TEST(ProgressTest, JsonGivesEveryEventAndTextRedrawsAtMostTenTimesASecond) {
  testing::FakeClockEnv env;
  std::FILE* json_sink = std::tmpfile();
  {
    Progress p(ProgressMode::kJson, "folders", 2, &env, json_sink);
    p.Update(1, "a/b");
    p.Update(2, "a/c");
  }
  std::string events = Drain(json_sink);
  std::fclose(json_sink);
  EXPECT_EQ(
      events,
      "{\"event\":\"start\",\"unit\":\"folders\",\"total\":2}\n"
      "{\"event\":\"progress\",\"done\":1,\"total\":2,\"unit\":\"folders\",\"item\":\"a/b\"}\n"
      "{\"event\":\"progress\",\"done\":2,\"total\":2,\"unit\":\"folders\",\"item\":\"a/c\"}\n"
      "{\"event\":\"done\",\"done\":2,\"total\":2,\"unit\":\"folders\",\"elapsed_ms\":0}\n");

  std::FILE* text_sink = std::tmpfile();
  {
    Progress p(ProgressMode::kText, "folders", 1000, &env, text_sink);
    for (size_t i = 1; i <= 1000; ++i) {
      if (i % 100 == 0) env.Advance(100);
      p.Update(i, "");
    }
  }
  const std::string text = Drain(text_sink);
  std::fclose(text_sink);
  // The first update, one a tenth of a second after, and the last.
  EXPECT_LE(std::count(text.begin(), text.end(), '\r'), 13);
  EXPECT_NE(text.find("Processed 1000 of 1000 folders"), std::string::npos);
  // It ends on a blank line, the cursor back at its start.
  EXPECT_EQ(text.substr(text.rfind('\r') - 1), " \r");

  std::FILE* none_sink = std::tmpfile();
  {
    Progress p(ProgressMode::kNone, "folders", 3, &env, none_sink);
    p.Update(3, "x");
  }
  EXPECT_EQ(Drain(none_sink), "");
  std::fclose(none_sink);
}

}  // namespace
}  // namespace qaaisp::qastore
