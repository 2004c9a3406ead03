#include "persist/stream_index_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <vector>

#include "base/dates.h"
#include "persist/index_escape.h"
#include "persist/stream_index_test_support.h"
#include "platform/win32_error.h"

namespace qaaisp::persist::testing {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kEmptyIndex[] = "<BASEELEMENT LASTUID=\"x00000000\"></BASEELEMENT>\r\n";

class StreamIndexWriterTest : public StreamIndexTest {
 protected:
  using StreamIndexTest::StreamIndexTest;

  // Three saved rows, the middle one flagged seen.
  void SaveThreeRows() {
    auto index = NewIndex();
    index->table.LoadState = LoadFull;
    AddRow(index.get(), "1.MAI", {{"SUBJECT", "first"}, {"SIZE", "100"}});
    AddRow(index.get(), "2.MAI", {{"SUBJECT", "second"}, {"FLAGSTATUS", "\\Seen"}});
    AddRow(index.get(), "3.MAI", {{"SUBJECT", "third"}, {"SIZE", "300"}});
    ASSERT_EQ(Save(index.get()), 1);
  }

  std::unique_ptr<StoreIndex> LoadedIndex(int32_t mode, const std::string& filter = "") {
    auto index = NewIndex();
    EXPECT_EQ(Load(index.get(), mode, filter), mode);
    return index;
  }

  std::string ExpectedAfter(StoreIndex* index) {
    return FullRewriteOf(Rows(index->table), index->table.LastUID);
  }

  int OpensOfIndex() {
    int opens = 0;
    for (const std::string& call : env_.log()) opens += call == "open:" + IndexPath();
    return opens;
  }
};

// Every number property is set: a number slot below a row's highest slot
// counts as set even at 0, so the ones left out would show up as zeros
// depending on the order in which this process met the names.
Properties MessageRow(const std::string& subject, const std::string& flags, int size) {
  return {{"SUBJECT", subject}, {"FLAGSTATUS", flags}, {"SIZE", std::to_string(size)},
          {"STATE", "1"},       {"IMPORTANCE", "2"},   {"ATTACHMENTS", "0"},
          {"MODIFIEDDATE", "5"}};
}

TEST_F(StreamIndexWriterTest, FullRewriteWritesTheFileFormat) {
  auto index = NewIndex();
  index->table.LoadState = LoadFull;
  ASSERT_EQ(Save(index.get()), 1);
  EXPECT_EQ(FileBytes(), kEmptyIndex);
  EXPECT_EQ(FileBytes().size(), 49u);

  AddRow(index.get(), "1.MAI", MessageRow("a&b<c>", "\\Seen", -1));
  AddRow(index.get(), "2.MAI", MessageRow("plain", "", 7));
  index->table.OffsetsValid = false;
  ASSERT_EQ(Save(index.get()), 1);
  const std::string second_row =
      "<ELEMENT ID=\"2.MAI\" UID=\"2\"><ATTACHMENTS>0</ATTACHMENTS><IMPORTANCE>2</IMPORTANCE>"
      "<MODIFIEDDATE>5</MODIFIEDDATE><READ>0</READ><SIZE>7</SIZE><STATE>1</STATE>"
      "<SUBJECT>plain</SUBJECT></ELEMENT>";
  EXPECT_EQ(FileBytes(),
            "<BASEELEMENT LASTUID=\"x00000002\">"
            "<ELEMENT ID=\"1.MAI\" UID=\"1\"><ATTACHMENTS>0</ATTACHMENTS>"
            "<FLAGSTATUS>\\Seen</FLAGSTATUS><IMPORTANCE>2</IMPORTANCE>"
            "<MODIFIEDDATE>5</MODIFIEDDATE><READ>1</READ><SIZE>4294967295</SIZE><STATE>1</STATE>"
            "<SUBJECT>a&amp;b&lt;c&gt;</SUBJECT></ELEMENT>" +
                second_row + "</BASEELEMENT>\r\n");
  // The places noted in memory are those of the file.
  IndexItemPropertyContainer* second = Row(index.get(), "2.MAI");
  EXPECT_EQ(FileBytes().substr(second->FileOffset, second->FileLength), second_row);
  EXPECT_EQ(LoadedRows(), Rows(index->table));
}

// A save long enough for a helper to format every other block of rows,
// whole and then from a changed row on, puts each row where memory says.
TEST_F(StreamIndexWriterTest, LongSavesPlaceEveryRowWhereMemorySays) {
  auto index = NewIndex();
  index->table.LoadState = LoadFull;
  for (int i = 1; i <= 5000; ++i) {
    AddRow(index.get(), std::to_string(i) + ".MAI",
           MessageRow("subject <" + std::to_string(i) + ">", i % 2 ? "\\Seen" : "", i));
  }
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    ASSERT_EQ(Save(index.get()), 1);
    const std::string bytes = FileBytes();
    for (const auto& [uid, row] : index->table.by_uid()) {
      const std::string element = bytes.substr(row->FileOffset, row->FileLength);
      ASSERT_TRUE(element.starts_with("<ELEMENT ID=\"" + std::string(row->IdView()) + "\"")) << uid;
      ASSERT_TRUE(element.ends_with("</ELEMENT>")) << uid;
    }
    EXPECT_EQ(LoadedRows(), Rows(index->table));
    SetOnRow(index.get(), "300.MAI", "SUBJECT", "longer than it was before");
  }
}

TEST_F(StreamIndexWriterTest, FlagChangeOfSameLengthRewritesInPlaceWithoutCutting) {
  SaveThreeRows();
  const std::string before = FileBytes();
  auto index = LoadedIndex(LoadFull);
  const int32_t changed_at = Row(index.get(), "2.MAI")->FileOffset;
  SetOnRow(index.get(), "2.MAI", "FLAGSTATUS", "\\Flag");  // READ drops to 0, also one digit
  env_.Reset();
  ASSERT_EQ(Save(index.get()), 1);

  const std::string after = FileBytes();
  EXPECT_EQ(after.size(), before.size());
  EXPECT_EQ(after.substr(0, changed_at), before.substr(0, changed_at));
  EXPECT_EQ(after, ExpectedAfter(index.get()));
  EXPECT_EQ(OpensOfIndex(), 1);  // no second open to cut the file
}

TEST_F(StreamIndexWriterTest, RowsThatShrinkOrGrowMoveWhatFollows) {
  SaveThreeRows();
  auto index = LoadedIndex(LoadFull);
  SetOnRow(index.get(), "1.MAI", "SUBJECT", "1");
  ASSERT_EQ(Save(index.get()), 1);
  EXPECT_EQ(FileBytes(), ExpectedAfter(index.get()));
  EXPECT_EQ(LoadedRows(), Rows(index->table));

  index = LoadedIndex(LoadFull);
  SetOnRow(index.get(), "2.MAI", "SUBJECT", std::string(500, 'x'));
  ASSERT_EQ(Save(index.get()), 1);
  EXPECT_EQ(FileBytes(), ExpectedAfter(index.get()));
}

TEST_F(StreamIndexWriterTest, RemovalOverwritesOnlyTheAttributes) {
  auto index = NewIndex();
  index->table.LoadState = LoadFull;
  AddRow(index.get(), "abcdefghijkl", {{"UID", "100"}, {"SUBJECT", "twelve"}});
  AddRow(index.get(), "keep.MAI", {{"UID", "200"}, {"SUBJECT", "kept"}});
  AddRow(index.get(), "x", {{"UID", "12345"}, {"SUBJECT", "uid longer than id"}});
  ASSERT_EQ(Save(index.get()), 1);
  const std::string before = FileBytes();

  index = LoadedIndex(LoadKeys);
  const int32_t first = Row(index.get(), "abcdefghijkl")->FileOffset;
  const int32_t last = Row(index.get(), "x")->FileOffset;
  index->table.Remove("abcdefghijkl");
  index->table.Remove("x");
  ASSERT_EQ(Save(index.get()), 1);

  const std::string after = FileBytes();
  ASSERT_EQ(after.size(), before.size());
  const std::string twelve = "<ELEMENT ID=\"------------\" UID=\"---\"";
  const std::string one = "<ELEMENT ID=\"-\" UID=\"-----\"";
  EXPECT_EQ(after.substr(first, twelve.size()), twelve);
  EXPECT_EQ(after.substr(last, one.size()), one);
  for (size_t i = 0; i < after.size(); ++i) {
    if (after[i] == before[i]) continue;
    bool in_first = i >= static_cast<size_t>(first) && i < first + twelve.size();
    bool in_last = i >= static_cast<size_t>(last) && i < last + one.size();
    EXPECT_TRUE(in_first || in_last) << "byte " << i << " changed";
  }
  uint32_t last_uid = 0;
  RowSet rows = LoadedRows(&last_uid);
  EXPECT_EQ(rows.size(), 1u);
  EXPECT_TRUE(rows.count(200));
  EXPECT_EQ(last_uid, 12345u);  // the highest UID is gone, LASTUID stays
}

TEST_F(StreamIndexWriterTest, RowsAddedToAHeaderOnlyLoadGoWhereTheRootEndTagWas) {
  SaveThreeRows();
  const std::string before = FileBytes();
  auto index = LoadedIndex(LoadHeader);
  ASSERT_EQ(index->table.size(), 0u);
  AddRow(index.get(), "4.MAI", {{"SUBJECT", "fourth"}});
  AddRow(index.get(), "5.MAI", {{"SUBJECT", "fifth"}});
  ASSERT_EQ(Save(index.get()), 1);

  const std::string after = FileBytes();
  const size_t rows_end = before.size() - kIndexTrailer.size();
  EXPECT_EQ(after.substr(0, 23), before.substr(0, 23));
  EXPECT_EQ(after.substr(23, 8), "00000005");
  EXPECT_EQ(after.substr(31, rows_end - 31), before.substr(31, rows_end - 31));
  const IndexItemPropertyContainer* fourth = Row(index.get(), "4.MAI");
  const IndexItemPropertyContainer* fifth = Row(index.get(), "5.MAI");
  EXPECT_EQ(static_cast<size_t>(fourth->FileOffset), rows_end);
  EXPECT_EQ(static_cast<size_t>(fifth->FileOffset), rows_end + fourth->FileLength);
  EXPECT_EQ(after.compare(rows_end, 28, "<ELEMENT ID=\"4.MAI\" UID=\"4\">"), 0);
  EXPECT_EQ(after.substr(fifth->FileOffset + fifth->FileLength), kIndexTrailer);
  EXPECT_EQ(LoadedRows().size(), 5u);
}

TEST_F(StreamIndexWriterTest, FileChangedSinceLoadAbortsPartialSaveAndRewritesCompleteOne) {
  SaveThreeRows();
  auto partial = LoadedIndex(LoadHeader);
  AddRow(partial.get(), "4.MAI", {{"SUBJECT", "fourth"}});
  auto complete = LoadedIndex(LoadFull);
  SetOnRow(complete.get(), "1.MAI", "SUBJECT", "changed");

  // Another process rewrote the file in the meantime.
  const std::string theirs = FileBytes() + " ";
  WriteFile(IndexPath(), theirs);
  EXPECT_EQ(Save(partial.get()), 0);
  EXPECT_THAT(Reports(), Contains(HasSubstr("Index file modified since load (" + IndexPath() +
                                            "). Index was not fully loaded: aborting save.")));
  EXPECT_EQ(FileBytes(), theirs);

  ASSERT_EQ(Save(complete.get()), 1);
  EXPECT_EQ(FileBytes(), ExpectedAfter(complete.get()));
}

class StreamIndexWriterDebugTest : public StreamIndexWriterTest {
 protected:
  StreamIndexWriterDebugTest() : StreamIndexWriterTest({"\"Debug Index Saves\"=dword:00000001"}) {}
};

TEST_F(StreamIndexWriterDebugTest, SecondSaveOfOneLoadRewritesInFull) {
  SaveThreeRows();
  auto index = LoadedIndex(LoadFull);
  SetOnRow(index.get(), "3.MAI", "SUBJECT", "once");
  ASSERT_EQ(Save(index.get()), 1);
  SetOnRow(index.get(), "3.MAI", "SUBJECT", "twice");
  ASSERT_EQ(Save(index.get()), 1);

  const std::string params = "SerialiseHook:: Folder: " + IndexPath() + ". Params: ";
  EXPECT_THAT(
      Reports(),
      Contains(HasSubstr(params + "FullRewriteRequired =0, Index->FirstModifiedUID=3, "
                                  "LoadState = 4, IsFiltered = 0, IsFieldFiltered = 0.\n")));
  EXPECT_THAT(Reports(), Contains(HasSubstr(params + "FullRewriteRequired =1")));
  EXPECT_EQ(FileBytes(), ExpectedAfter(index.get()));
}

TEST_F(StreamIndexWriterTest, NothingToSaveOrNowhereToSave) {
  SaveThreeRows();
  auto index = LoadedIndex(LoadFull);
  env_.Reset();
  EXPECT_EQ(Save(index.get()), 1);
  EXPECT_EQ(OpensOfIndex(), 0);

  // A partial index never creates the file.
  qaaisp::testing::TempDir empty;
  index->table.LoadState = LoadHeader;
  AddRow(index.get(), "4.MAI", {});
  StreamXMLStoreIndexSerialiser writer;
  EXPECT_EQ(writer.SerialiseHook(&index->table, empty.path(), 0), 0);
  EXPECT_FALSE(qaaisp::testing::Exists(empty.path() + "/_index.xml"));

  index->table.LoadState = LoadFull;
  const std::string gone = dir_.Sub("Gone");
  EXPECT_EQ(writer.SerialiseHook(&index->table, gone, 0), 0);
  EXPECT_THAT(Reports(), Contains(HasSubstr("Failed to serialise index: " + gone +
                                            ". The folder does not exist, so the index file "
                                            "could not be written.\n")));
}

TEST_F(StreamIndexWriterTest, WaitsWhileAnotherHandleHoldsTheFile) {
  SaveThreeRows();
  auto index = LoadedIndex(LoadFull);
  SetOnRow(index.get(), "1.MAI", "SUBJECT", "waited");
  platform::OpenOptions shared;
  std::unique_ptr<platform::File> reader = env_.OpenFile(IndexPath(), shared);
  ASSERT_NE(reader, nullptr);

  EXPECT_EQ(Save(index.get()), 0);
  EXPECT_EQ(env_.sleeps(), std::vector<uint32_t>(19, 2000));
  EXPECT_THAT(
      Reports(),
      Contains(HasSubstr("Failed to serialise index: " + folder_ +
                         ". A File Access error occurred when opening the file (was retried "
                         "for 40 seconds). No data can be written.\n")));

  env_.OnSleep([&](int count) {
    if (count == 21) reader.reset();  // the reader is done after two more polls
  });
  EXPECT_EQ(Save(index.get()), 1);
  EXPECT_EQ(env_.sleep_count(), 21);
  EXPECT_EQ(FileBytes(), ExpectedAfter(index.get()));
}

// Tries a reader's open of the index file at the moment the writer has it.
class ReaderProbeEnv : public platform::EnvWrapper {
 public:
  using EnvWrapper::EnvWrapper;
  std::unique_ptr<platform::File> OpenFile(const std::string& path,
                                           const platform::OpenOptions& options) override {
    std::unique_ptr<platform::File> file = target()->OpenFile(path, options);
    if (file && options.share == platform::ShareMode::kShareNone) {
      reader_error = target()->OpenFile(path, platform::OpenOptions{}) ? 0 : platform::LastError();
    }
    return file;
  }
  uint32_t reader_error = 1;
};

TEST_F(StreamIndexWriterTest, ReadersAreShutOutWhileTheFileIsWritten) {
  SaveThreeRows();
  auto index = LoadedIndex(LoadFull);
  SetOnRow(index.get(), "1.MAI", "SUBJECT", "probed");
  ReaderProbeEnv probe(&env_);
  platform::Env::SetDefaultForTesting(&probe);
  const int result = Save(index.get());
  platform::Env::SetDefaultForTesting(&env_);
  EXPECT_EQ(result, 1);
  EXPECT_EQ(probe.reader_error, platform::kErrorSharingViolation);
}

TEST_F(StreamIndexWriterTest, RowsOfAFilteredLoadAreCarriedAlongUnchanged) {
  auto index = NewIndex();
  index->table.LoadState = LoadFull;
  for (int i = 1; i <= 12; ++i) {
    AddRow(index.get(), std::to_string(i) + ".MAI", {{"SUBJECT", "s" + std::to_string(i)}});
  }
  ASSERT_EQ(Save(index.get()), 1);
  RowSet expected = Rows(index->table);

  // Only two rows in memory; the first grows by far more than the short
  // rows that follow it, so the carried rows are overtaken by the writes.
  index = LoadedIndex(LoadFull, "2.MAI,9.MAI");
  ASSERT_EQ(index->table.size(), 2u);
  SetOnRow(index.get(), "2.MAI", "SUBJECT", std::string(2000, 'g'));
  SetOnRow(index.get(), "9.MAI", "SUBJECT", "");
  SetOnRow(index.get(), "9.MAI", "FLAGSTATUS", "\\Answered");
  ASSERT_EQ(Save(index.get()), 1);
  EXPECT_THAT(Reports(), Contains(HasSubstr("Corrupting index " + folder_ +
                                            ". Item size for 2.MAI "
                                            "has grown so much that the gap will overflow the "
                                            "next item.")));
  EXPECT_THAT(Reports(), Not(Contains(HasSubstr("Gap"))));

  expected[2]["SUBJECT"] = std::string(2000, 'g');
  expected[9] = Rows(index->table)[9];
  uint32_t last_uid = 0;
  EXPECT_EQ(LoadedRows(&last_uid), expected);
  EXPECT_EQ(FullRewriteOf(LoadedRows(), last_uid), FullRewriteOf(expected, 12));
}

TEST_F(StreamIndexWriterTest, GapThatIsNotWholeRowsIsReported) {
  SaveThreeRows();
  auto index = LoadedIndex(LoadFull, "1.MAI");
  // Junk between the rows: a file that another writer damaged.
  std::string bytes = FileBytes();
  IndexItemPropertyContainer* row = Row(index.get(), "1.MAI");
  bytes.insert(row->FileOffset + row->FileLength, "junk text ");
  WriteFile(IndexPath(), bytes);
  platform::FileInfo info;
  ASSERT_TRUE(env_.Stat(IndexPath(), &info));
  index->table.IndexFileDate = info.write_time.ticks();
  index->IndexFileSize = static_cast<uint32_t>(info.size);

  SetOnRow(index.get(), "1.MAI", "SUBJECT", "x");
  ASSERT_EQ(Save(index.get()), 1);
  EXPECT_THAT(Reports(), Contains(HasSubstr("Corrupting index " + folder_ +
                                            ". Gap after 1.MAI does not start at the start of an "
                                            "element.")));
  EXPECT_THAT(Reports(), Not(Contains(HasSubstr("does not end at the end"))));
  EXPECT_EQ(LoadedRows().size(), 3u);  // text between rows is skipped
}

TEST_F(StreamIndexWriterTest, FailedSaveIsRepairedByTheNextOne) {
  // Every file call of an in-place save fails in turn. A save that reports
  // success has written the rows; one that fails keeps its marks, and the
  // next save of the same index writes them.
  for (int fail_at = 1;; ++fail_at) {
    SaveThreeRows();
    auto index = LoadedIndex(LoadFull);
    SetOnRow(index.get(), "2.MAI", "SUBJECT", std::string(40, 'y'));
    AddRow(index.get(), "4.MAI", {{"SUBJECT", "new"}});
    index->table.Remove("3.MAI");
    const std::string expected = ExpectedAfter(index.get());

    env_.Reset();
    env_.FailAt(
        fail_at, 112,
        fail_at % 2 ? FaultInjectionEnv::Fault::kShortWrite : FaultInjectionEnv::Fault::kError);
    int result = Save(index.get());
    const bool tripped = env_.calls() >= fail_at;
    env_.Reset();
    if (result == 0) {
      EXPECT_EQ(Save(index.get()), 1) << "fault at call " << fail_at;
    }
    EXPECT_EQ(FileBytes(), expected) << "fault at call " << fail_at;
    if (!tripped) break;
  }
}

TEST(IndexEscapeTest, PlainTextOnlyLosesItsMarkup) {
  TextEscaper escaper(MakeEscapeTable(), true);
  EXPECT_EQ(escaper.Escape("a<b>&c\t\r\n"), "a&lt;b&gt;&amp;c\t\r\n");
  EXPECT_EQ(escaper.Escape("&amp;"), "&amp;amp;");
}

TEST(IndexEscapeTest, OtherTextIsCleanedAndReferenced) {
  TextEscaper strict(MakeEscapeTable(), true);
  EXPECT_EQ(strict.Escape("caf\xC3\xA9 <"), "caf\xC3\xA9 &lt;");
  // Beyond the 16-bit plane: one reference per surrogate.
  EXPECT_EQ(strict.Escape("\xF0\x9F\x98\x80"), "&#xD83D;&#xDE00;");
  EXPECT_EQ(strict.Escape("\xEF\xBF\xBE"), "&#xFFFE;");
  // Ill-formed bytes and control bytes become one space each.
  EXPECT_EQ(strict.Escape("a\xFF"
                          "b"),
            "a b");
  EXPECT_EQ(strict.Escape("\xE2\x82"), "  ");
  EXPECT_EQ(strict.Escape("\xC0\xAF"), "  ");
  EXPECT_EQ(strict.Escape("\xED\xA0\x80"), "   ");
  EXPECT_EQ(strict.Escape("\xF4\x90\x80\x80"), "    ");
  EXPECT_EQ(strict.Escape("\x01\x7F&"), "  &amp;");

  TextEscaper lenient(MakeEscapeTable(), false);
  EXPECT_EQ(lenient.Escape("a\xFF"
                           "b"),
            "a\xEF\xBF\xBD"
            "b");
  EXPECT_EQ(lenient.Escape("\xE2\x82<"), "\xEF\xBF\xBD&lt;");
  EXPECT_EQ(lenient.Escape("\x01\x7F"), "&#x1;\x7F");

  // Cleaning is done in the same pass as escaping: it must come to what
  // escaping the cleaned copy gives.
  std::mt19937 random(5);
  std::vector<std::string> bytes;
  std::stringstream pieces("a|<|&|\x01|\x7F|\xC3|\xA9|\xE2\x82|\xF0\x9F\x98|\x80|\xEF\xBF\xBE|\t");
  for (std::string piece; std::getline(pieces, piece, '|');) bytes.push_back(piece);
  for (int round = 0; round < 2000; ++round) {
    std::string text;
    for (int n = static_cast<int>(random() % 12); n > 0; --n)
      text += bytes[random() % bytes.size()];
    ASSERT_EQ(strict.Escape(text), lenient.Escape(CleanToValidUtf8(text))) << round;
  }
}

TEST_F(StreamIndexWriterTest, MessagesEscapeOnlyTheirMarkupFields) {
  auto index = NewIndex();
  index->table.LoadState = LoadFull;
  AddRow(index.get(), "1.MAI", {{"SUBJECT", "<s>"}, {"ATTACHNAME", "a&b"}});
  ASSERT_EQ(Save(index.get(), 0), 1);
  EXPECT_THAT(FileBytes(), HasSubstr("<ATTACHNAME>a&b</ATTACHNAME>"));
  EXPECT_THAT(FileBytes(), HasSubstr("<SUBJECT>&lt;s&gt;</SUBJECT>"));

  index->table.OffsetsValid = false;
  ASSERT_EQ(Save(index.get(), 1), 1);
  EXPECT_THAT(ReadFile(folder_ + "/_index.xml"), HasSubstr("<ATTACHNAME>a&amp;b</ATTACHNAME>"));
}

class OffsetTableTest : public StreamIndexWriterTest {
 protected:
  OffsetTableTest() : StreamIndexWriterTest({"\"Offset Index\"=dword:00000001"}) {}

  std::string TablePath() const { return folder_ + "/_index.bin"; }

  static uint32_t Word(const std::string& bytes, size_t at) {
    uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<uint8_t>(bytes[at + i]);
    return v;
  }
};

TEST_F(OffsetTableTest, FullSaveRecordsEveryRowAndPartialOnesDropTheTable) {
  auto index = NewIndex();
  index->table.LoadState = LoadFull;
  AddRow(index.get(), "1.MAI", {{"RECEIVED", "2024-01-02T03:04:05"}});
  AddRow(index.get(), "2.MAI", {{"RECEIVED", "2024-01-02"}});
  ASSERT_EQ(Save(index.get()), 1);

  const std::string table = ReadFile(TablePath());
  ASSERT_EQ(table.size(), 24u + 2 * 16);
  EXPECT_EQ(table.substr(0, 24), std::string("\x01\0\0\0", 4) + std::string(20, '\0'));
  const std::string file = FileBytes();
  for (int r = 0; r < 2; ++r) {
    const size_t at = 24 + 16 * r;
    EXPECT_EQ(file.compare(Word(table, at), 14, "<ELEMENT ID=\"" + std::to_string(r + 1)), 0);
    EXPECT_EQ(Word(table, at + 4), static_cast<uint32_t>(r + 1));
  }
  SystemTime when{2024, 1, 0, 2, 3, 4, 5, 0};
  platform::FileTime expected;
  ASSERT_TRUE(FileTimeFromSystemTime(when, &expected));
  EXPECT_EQ(Word(table, 32), expected.low);
  EXPECT_EQ(Word(table, 36), expected.high);
  when = SystemTime{2024, 1, 0, 2, 0, 0, 0, 0};
  ASSERT_TRUE(FileTimeFromSystemTime(when, &expected));
  EXPECT_EQ(Word(table, 48), expected.low);

  // An append after a header-only load cannot know the other rows' places.
  index = LoadedIndex(LoadHeader);
  AddRow(index.get(), "3.MAI", {});
  ASSERT_EQ(Save(index.get()), 1);
  EXPECT_FALSE(qaaisp::testing::Exists(TablePath()));
}

}  // namespace
}  // namespace qaaisp::persist::testing
