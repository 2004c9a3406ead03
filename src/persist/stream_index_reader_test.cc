#include "persist/stream_index_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <random>

#include "persist/index_text.h"
#include "persist/index_xml_test_util.h"

namespace qaaisp::persist {
namespace {

using ::testing::ElementsAre;
using testing::Header;
using testing::IndexXml;
using testing::RowXml;
using testing::TombstoneXml;

// An index in miniature: strict or lenient insertion by UID and ID, a
// sequence, and the header fields.
class FakeTarget : public StreamIndexTarget {
 public:
  struct Row {
    std::map<std::string, std::string> props;
    uint32_t offset = 0, length = 0, idx = 0, seq = 0;
  };

  uint32_t LastUid() const override { return last_uid; }
  void SetLastUid(uint32_t uid) override { last_uid = uid; }
  bool FullRewriteRequired() const override { return full_rewrite; }
  void SetFullRewriteRequired() override { full_rewrite = true; }
  void ClearItemFilter() override { item_filter_cleared = true; }
  void ClearFieldFilter() override { field_filter_cleared = true; }
  bool ItemFileExists(std::string_view id) override { return present.count(std::string(id)); }
  void BeginRow(uint32_t offset) override {
    EXPECT_FALSE(building);
    building = true;
    row = Row{};
    row.offset = offset;
  }
  void SetRowProperty(std::string_view name, std::string_view value) override {
    ASSERT_TRUE(building);
    row.props[std::string(name)] = std::string(value);
  }
  void DropRow() override {
    EXPECT_TRUE(building);
    building = false;
  }
  bool InsertRow(uint32_t length, uint32_t idx, bool strict, bool sequence, uint32_t seq) override {
    EXPECT_TRUE(building);
    building = false;
    row.length = length;
    row.idx = idx;
    std::string id = row.props.count("ID") ? row.props["ID"] : "";
    uint32_t uid =
        row.props.count("UID") ? static_cast<uint32_t>(ParseSignedDecimal(row.props["UID"])) : 0;
    if (uid == 0) uid = last_uid + 1;
    if (uid > last_uid) last_uid = uid;
    if (by_id.count(id)) return false;
    while (by_uid.count(uid)) {
      if (strict) return false;
      ++uid;
    }
    by_id[id] = uid;
    if (sequence) row.seq = seq;
    by_uid[uid] = row;
    if (sequence) order.push_back(uid);
    return true;
  }
  void Clear() override {
    by_uid.clear();
    by_id.clear();
    order.clear();
    cleared = true;
  }
  void SequenceByUid(uint32_t first) override {
    order.clear();
    for (auto& [uid, r] : by_uid) {
      r.seq = first++;
      order.push_back(uid);
    }
  }

  std::vector<std::string> Ids() const {
    std::vector<std::string> ids;
    for (uint32_t uid : order) ids.push_back(by_uid.at(uid).props.at("ID"));
    return ids;
  }
  const Row& ById(const std::string& id) const { return by_uid.at(by_id.at(id)); }

  uint32_t last_uid = 0;
  bool full_rewrite = false, item_filter_cleared = false, field_filter_cleared = false;
  bool cleared = false, building = false;
  std::set<std::string> present;
  Row row;
  std::map<uint32_t, Row> by_uid;
  std::map<std::string, uint32_t> by_id;
  std::vector<uint32_t> order;
};

StreamPassOutcome Pass(const std::string& bytes, FakeTarget* t, StreamPassOptions o = {}) {
  return RunStreamIndexPass(bytes, o, t);
}

// Reads through a source that hands out at most `step` bytes per read.
class PieceSource : public IndexByteSource {
 public:
  PieceSource(std::string_view bytes, size_t step) : bytes_(bytes), step_(step) {}
  int64_t ReadAt(uint64_t offset, char* buffer, size_t n) override {
    if (offset >= bytes_.size()) return 0;
    size_t take = std::min({n, step_, bytes_.size() - static_cast<size_t>(offset)});
    std::memcpy(buffer, bytes_.data() + offset, take);
    return static_cast<int64_t>(take);
  }

 private:
  std::string_view bytes_;
  size_t step_;
};

TEST(StreamIndexReaderTest, ReadsRowsWithPlacesIndexesAndUnescapedText) {
  std::string rows =
      RowXml("1.MAI", 3, {{"FLAGSTATUS", "\\SEEN"}, {"SUBJECT", "a &lt;b&gt; &amp; c"}}) +
      RowXml("2.MAI", 7, {{"SIZE", "120"}});
  std::string xml = IndexXml(9, rows);
  FakeTarget t;
  StreamPassOutcome out = Pass(xml, &t);
  ASSERT_EQ(out.result, StreamPassResult::kGood) << out.fault;
  EXPECT_EQ(out.fault, "");
  EXPECT_EQ(t.last_uid, 9u);
  EXPECT_FALSE(t.full_rewrite);
  EXPECT_THAT(t.Ids(), ElementsAre("1.MAI", "2.MAI"));
  const auto& first = t.ById("1.MAI");
  EXPECT_EQ(first.offset, 33u);
  EXPECT_EQ(
      first.length,
      RowXml("1.MAI", 3, {{"FLAGSTATUS", "\\SEEN"}, {"SUBJECT", "a &lt;b&gt; &amp; c"}}).size());
  EXPECT_EQ(first.props.at("SUBJECT"), "a <b> & c");
  EXPECT_EQ(first.props.at("UID"), "3");
  EXPECT_EQ(first.idx, 1u);
  EXPECT_EQ(first.seq, 1u);
  const auto& second = t.ById("2.MAI");
  EXPECT_EQ(second.offset, 33u + first.length);
  EXPECT_EQ(xml.substr(second.offset, second.length), RowXml("2.MAI", 7, {{"SIZE", "120"}}));
  EXPECT_EQ(second.idx, 2u);
  EXPECT_EQ(second.seq, 2u);
}

TEST(StreamIndexReaderTest, OnlyTheFirstFaultIsKeptAndRowsBeforeItStand) {
  std::string xml = Header(9) + RowXml("a", 1) + "<X>1</X>" + RowXml("b", 2);  // no root end
  FakeTarget t;
  StreamPassOutcome out = Pass(xml, &t);
  EXPECT_EQ(out.result, StreamPassResult::kMalformed);
  EXPECT_EQ(out.fault, "Encountered property tag (X) outside an element");
  EXPECT_THAT(t.Ids(), ElementsAre("a", "b"));
}

TEST(StreamIndexReaderTest, EqualUidsPassTheCheckAndTheSecondIsRefused) {
  FakeTarget t;
  StreamPassOutcome out = Pass(IndexXml(9, RowXml("a", 5) + RowXml("b", 5) + RowXml("c", 6)), &t);
  EXPECT_EQ(out.result, StreamPassResult::kGood) << out.fault;
  EXPECT_THAT(t.Ids(), ElementsAre("a", "c"));
  // The refused row still used up an IDX; SEQ counts rows that went in.
  EXPECT_EQ(t.ById("c").idx, 3u);
  EXPECT_EQ(t.ById("c").seq, 2u);

  // With keep the insertion is lenient and the second row moves to a free UID.
  FakeTarget k;
  StreamPassOptions keep;
  keep.keep = true;
  EXPECT_EQ(Pass(IndexXml(9, RowXml("a", 5) + RowXml("b", 5)), &k, keep).result,
            StreamPassResult::kGood);
  EXPECT_EQ(k.by_uid.size(), 2u);
}

TEST(StreamIndexReaderTest, OldFormatAndSelfClosedRoots) {
  // Decimal LASTUID, rows out of order: accepted, renumbered by UID, upgraded.
  FakeTarget t;
  std::string xml =
      "<BASEELEMENT LASTUID=\"12\">" + RowXml("b", 5) + RowXml("a", 4) + "</BASEELEMENT>";
  StreamPassOutcome out = Pass(xml, &t);
  EXPECT_EQ(out.result, StreamPassResult::kGood) << out.fault;
  EXPECT_EQ(t.last_uid, 12u);
  EXPECT_TRUE(t.full_rewrite);
  EXPECT_THAT(t.Ids(), ElementsAre("a", "b"));
  EXPECT_EQ(t.ById("a").seq, 1u);

  // A leading "0" makes the old form hexadecimal.
  FakeTarget hex;
  Pass("<BASEELEMENT LASTUID=\"010\"></BASEELEMENT>", &hex);
  EXPECT_EQ(hex.last_uid, 16u);

  // The document writer's empty index.
  for (const char* root :
       {"<BASEELEMENT LASTUID=\"7\"/>", "<BASEELEMENT LASTUID=\"x00000007\"/>"}) {
    FakeTarget e;
    NameSet filter{"a"};
    StreamPassOptions o;
    o.item_filter = &filter;
    out = Pass(root, &e, o);
    EXPECT_EQ(out.result, StreamPassResult::kGood) << root << out.fault;
    EXPECT_EQ(e.last_uid, 7u);
    EXPECT_TRUE(e.full_rewrite);
    EXPECT_TRUE(e.item_filter_cleared);
  }
}

TEST(StreamIndexReaderTest, TombstonesCountAsGarbageAndForceAFullLoadPastTheThreshold) {
  std::string rows = TombstoneXml(5, 1, "<SUBJECT>old</SUBJECT>") + RowXml("b.MAI", 2) +
                     TombstoneXml(5, 1, "") + RowXml("d.MAI", 4);
  // Both attributes all "-" count once.
  FakeTarget t;
  StreamPassOutcome out = Pass(IndexXml(4, rows), &t);
  EXPECT_EQ(out.result, StreamPassResult::kGood) << out.fault;
  EXPECT_EQ(out.garbage, 2u);
  EXPECT_THAT(t.Ids(), ElementsAre("b.MAI", "d.MAI"));
  EXPECT_EQ(t.ById("d.MAI").idx, 2u);
  EXPECT_FALSE(t.full_rewrite);

  StreamPassOptions o;
  o.garbage_threshold = 2;
  // Full and unfiltered: the load stands, the next save collects.
  FakeTarget full;
  out = Pass(IndexXml(4, rows), &full, o);
  EXPECT_EQ(out.result, StreamPassResult::kGood);
  EXPECT_TRUE(full.full_rewrite);
  EXPECT_EQ(full.by_uid.size(), 2u);
  // Partial: the pass stops at the threshold and asks for a full load.
  for (int mode : {1, 2, 3}) {
    FakeTarget partial;
    o.mode = mode;
    out = Pass(IndexXml(4, rows), &partial, o);
    EXPECT_EQ(out.result, StreamPassResult::kReloadInFull) << mode;
    EXPECT_TRUE(partial.cleared);
    EXPECT_TRUE(partial.full_rewrite);
    EXPECT_TRUE(partial.item_filter_cleared);
  }
  // Filtered full load: likewise.
  NameSet filter{"b.MAI", "d.MAI"};
  o.mode = 4;
  o.item_filter = &filter;
  FakeTarget filtered;
  EXPECT_EQ(Pass(IndexXml(4, rows), &filtered, o).result, StreamPassResult::kReloadInFull);
}

TEST(StreamIndexReaderTest, FilteredLoadTakesFoundIdsOutAndLeavesTheRest) {
  std::string rows = RowXml("a", 1) + RowXml("b", 2) + RowXml("c", 3);
  NameSet filter{"c", "a", "zz"};
  StreamPassOptions o;
  o.item_filter = &filter;
  FakeTarget t;
  StreamPassOutcome out = Pass(IndexXml(3, rows), &t, o);
  EXPECT_EQ(out.result, StreamPassResult::kGood);
  EXPECT_THAT(t.Ids(), ElementsAre("a", "c"));
  EXPECT_THAT(filter, ElementsAre("zz"));
  // A skipped row uses no IDX.
  EXPECT_EQ(t.ById("c").idx, 2u);

  // An index already marked for a full rewrite ignores the filter.
  FakeTarget marked;
  marked.full_rewrite = true;
  NameSet again{"a"};
  o.item_filter = &again;
  Pass(IndexXml(3, rows), &marked, o);
  EXPECT_EQ(marked.by_uid.size(), 3u);
}

TEST(StreamIndexReaderTest, VerifyFilesDropsRowsWithoutTheirFile) {
  FakeTarget t;
  t.present = {"a", "c"};
  StreamPassOptions o;
  o.verify_files = true;
  StreamPassOutcome out =
      Pass(IndexXml(3, RowXml("a", 1) + RowXml("b", 2) + RowXml("c", 3)), &t, o);
  EXPECT_EQ(out.result, StreamPassResult::kGood);
  EXPECT_THAT(t.Ids(), ElementsAre("a", "c"));
  EXPECT_TRUE(t.full_rewrite);
}

TEST(StreamIndexReaderTest, KeysModeAndFieldFilterLimitProperties) {
  std::string xml = IndexXml(1, RowXml("a", 1, {{"SIZE", "5"}, {"SUBJECT", "s"}}));
  FakeTarget keys;
  StreamPassOptions o;
  o.mode = 2;
  EXPECT_EQ(Pass(xml, &keys, o).result, StreamPassResult::kGood);
  EXPECT_EQ(keys.ById("a").props.size(), 2u);  // ID and UID

  NameSet fields{"ID", "SIZE"};
  o.mode = 3;
  o.field_filter = &fields;
  FakeTarget some;
  Pass(xml, &some, o);
  EXPECT_EQ(some.ById("a").props.count("SIZE"), 1u);
  EXPECT_EQ(some.ById("a").props.count("SUBJECT"), 0u);
}

TEST(StreamIndexReaderTest, AttributeWalkQuirks) {
  // The closing quote is searched from one byte behind the opening one, so
  // an empty ID swallows the next attribute's opening.
  FakeTarget t;
  Pass(IndexXml(5, "<ELEMENT ID=\"\" UID=\"5\"></ELEMENT>"), &t);
  ASSERT_EQ(t.by_uid.size(), 1u);
  EXPECT_EQ(t.by_uid.begin()->second.props.at("ID"), "\" UID=");
  EXPECT_EQ(t.by_uid.begin()->second.props.count("UID"), 0u);

  // Extra attributes are stored under their names; text between rows and
  // before the root is ignored.
  FakeTarget x;
  StreamPassOutcome out =
      Pass("junk" + IndexXml(5, "\r\n<ELEMENT ID=\"a\" UID=\"1\" KIND=\"x y\"></ELEMENT>text"), &x);
  EXPECT_EQ(out.result, StreamPassResult::kGood) << out.fault;
  EXPECT_EQ(x.ById("a").props.at("KIND"), "x y");
  EXPECT_EQ(x.ById("a").offset, 4u + 33u + 2u);
}

TEST(StreamIndexReaderTest, LongTagFallsApartIntoTagAndText) {
  std::string id(1100, 'i');
  FakeTarget t;
  StreamPassOutcome out = Pass(IndexXml(5, RowXml(id, 1)), &t);
  // The tag is cut at 1023 bytes, so its ID has no closing quote.
  EXPECT_EQ(out.result, StreamPassResult::kMalformed);
  EXPECT_EQ(out.fault.rfind("Unable to parse ID attribute, Tag=[ELEMENT ID=\"iii", 0), 0u);
  EXPECT_EQ(out.fault.size(), std::string("Unable to parse ID attribute, Tag=[]").size() + 1023);

  // 1023 bytes exactly still fit.
  std::string fits(1023 - std::string("ELEMENT ID=\"\" UID=\"1\"").size(), 'f');
  FakeTarget u;
  out = Pass(IndexXml(5, RowXml(fits, 1)), &u);
  EXPECT_EQ(out.result, StreamPassResult::kGood) << out.fault;
  EXPECT_THAT(u.Ids(), ElementsAre(fits));
}

TEST(StreamIndexReaderTest, ChunkedSourceReadsTheSameAsTheBuffer) {
  std::string big_text(5000, 'x');
  std::string rows = RowXml("1", 1, {{"SUBJECT", "s&#65;"}}) + TombstoneXml(1, 1, "") +
                     RowXml("3", 3, {{"BODY", big_text}}) + RowXml("4", 4);
  std::string xml = "lead" + IndexXml(4, rows);
  FakeTarget whole;
  StreamPassOutcome expected = Pass(xml, &whole);
  ASSERT_EQ(expected.result, StreamPassResult::kGood) << expected.fault;
  for (size_t buffer : {1u, 7u, 64u, 100u, 4096u}) {
    for (size_t step : {1u, 3u, 1000u}) {
      PieceSource source(xml, step);
      FakeTarget t;
      StreamPassOptions o;
      o.file_length = static_cast<int64_t>(xml.size());
      StreamPassOutcome out = RunStreamIndexPass(&source, buffer, o, &t);
      EXPECT_EQ(out.result, expected.result) << buffer << "/" << step;
      EXPECT_EQ(out.garbage, expected.garbage);
      ASSERT_EQ(t.Ids(), whole.Ids());
      for (const auto& [uid, row] : whole.by_uid) {
        EXPECT_EQ(t.by_uid[uid].props, row.props);
        EXPECT_EQ(t.by_uid[uid].offset, row.offset);
        EXPECT_EQ(t.by_uid[uid].length, row.length);
      }
    }
  }
}

TEST(StreamIndexReaderTest, TruncatedAndBitFlippedFilesNeverReadOutOfBounds) {
  std::string rows;
  for (uint32_t uid = 1; uid <= 20; ++uid) {
    rows += uid % 5 == 0 ? TombstoneXml(6, 2, "<X>y</X>")
                         : RowXml(std::to_string(uid) + ".MAI", uid,
                                  {{"FROM", "a&amp;b &#x141; &#"}, {"SUBJECT", "s"}});
  }
  std::string xml = IndexXml(20, rows);
  std::mt19937 rng(7);
  auto run_all = [](const std::string& bytes) {
    FakeTarget t;
    NameSet filter{"3.MAI", "7.MAI"};
    StreamPassOptions o;
    Pass(bytes, &t, o);
    o.item_filter = &filter;
    o.mode = 2;
    o.garbage_threshold = 2;
    FakeTarget f;
    Pass(bytes, &f, o);
    // Heap-exact copy so that ASan sees a read past the end.
    std::unique_ptr<char[]> exact(new char[bytes.size()]);
    std::memcpy(exact.get(), bytes.data(), bytes.size());
    PieceSource source(std::string_view(exact.get(), bytes.size()), 5);
    FakeTarget c;
    RunStreamIndexPass(&source, 16, StreamPassOptions{}, &c);
  };
  for (size_t cut = 0; cut <= xml.size(); cut += 3) run_all(xml.substr(0, cut));
  for (int i = 0; i < 600; ++i) {
    std::string copy = xml;
    for (int flips = 0; flips < 3; ++flips) {
      copy[rng() % copy.size()] ^= static_cast<char>(1 << (rng() % 8));
    }
    run_all(copy);
  }
}

// Text before a tag whose whole read falls back must outlive the look
// ahead, however small the buffer (a fuzzed file once read it from before
// the window).
TEST(StreamIndexReaderTest, TextBeforeAFallenBackTagSurvivesTheLookAhead) {
  const std::vector<std::string> docs = {
      Header(7) + "<ELEMENT ID=\"a\" UID=\"7\">junk text<T>y<!-- c --></T></ELEMENT>" +
          "</BASEELEMENT>\r\n",
      ";b&#x3C;</SUBJECUn=\"1.0\"?\x0d\xa0<>\x0a"
      "BASp;bEELE]ENT LASTUMD=T ID\xc1<BASEELEMENT LASTUID=\"UMD=T ID\xc1<BASEELEMENT "
      "LASTUID=\"7\"><ELEMENT ID=\"a\" />EMENT>UID=\"7\" IRD\xc3\xdd\x9e\xe6 UID=\xf6\"6\">"
      "<SIZE>1",
  };
  for (const std::string& xml : docs) {
    for (int variant = 0; variant < 4; ++variant) {
      const bool filtered = variant & 1;
      StreamPassOptions o;
      o.mode = variant & 2 ? 1 : 4;
      o.file_length = static_cast<int64_t>(xml.size());
      o.garbage_threshold = 3;
      NameSet filter{"a", "1.MAI"};
      if (filtered) o.item_filter = &filter;
      FakeTarget whole;
      const StreamPassOutcome expected = Pass(xml, &whole, o);
      for (size_t buffer : {1u, 5u, 16u, 18u, 64u}) {
        for (size_t step : {1u, 5u}) {
          filter = {"a", "1.MAI"};
          PieceSource source(xml, step);
          FakeTarget t;
          const StreamPassOutcome out = RunStreamIndexPass(&source, buffer, o, &t);
          EXPECT_EQ(out.fault, expected.fault) << buffer << "/" << step;
          EXPECT_EQ(t.Ids(), whole.Ids()) << buffer << "/" << step;
        }
      }
    }
  }
}

// Properties are read whole where nothing could fault; each document here
// also needs the tag-by-tag reading, through buffers small enough to make
// the look ahead refill and grow the window.
TEST(StreamIndexReaderTest, WholePropertiesReadAsTagByTag) {
  const std::string end = "</BASEELEMENT>\r\n";
  const std::string row = "<ELEMENT ID=\"a\" UID=\"1\">";
  struct Case {
    std::string body;
    std::map<std::string, std::string> props;
    std::string fault;
  };
  const std::vector<Case> cases = {
      {"<P x=\"1\">v</P x=\"1\"><R>a&gt;b>c</R><E></E><S>&lt;x&gt; &amp;&#65;</S>",
       {{"ID", "a"}, {"UID", "1"}, {"P x=\"1\"", "v"}, {"R", "a>b>c"}, {"E", ""}, {"S", "<x> &A"}},
       ""},
      // A mismatched end tag still stores the value, under its own name.
      {"<S>x</S ><T>y</T>",
       {{"ID", "a"}, {"UID", "1"}, {"S ", "x"}, {"T", "y"}},
       "Encountered property end tag (/S ) that does not match previous property start tag (S)"},
      {"<Q/><T>y</T>",
       {{"ID", "a"}, {"UID", "1"}, {"T", "y"}},
       "Encountered property start tag (T) nested within another property (Q/)"},
      {"<T>y<!-- c --></T>",
       {{"ID", "a"}, {"UID", "1"}, {"T", ""}},
       "Encountered property start tag (!-- c --) nested within another property (T)"},
  };
  for (const Case& c : cases) {
    const std::string xml = Header(9) + row + c.body + "</ELEMENT>" + end;
    for (size_t buffer : {0u, 1u, 5u, 64u}) {
      FakeTarget t;
      StreamPassOutcome out;
      PieceSource source(xml, 3);
      if (buffer == 0) {
        out = Pass(xml, &t);
      } else {
        StreamPassOptions o;
        o.file_length = static_cast<int64_t>(xml.size());
        out = RunStreamIndexPass(&source, buffer, o, &t);
      }
      EXPECT_EQ(out.fault, c.fault) << c.body << " / " << buffer;
      ASSERT_EQ(t.by_uid.size(), 1u) << c.body << " / " << buffer;
      EXPECT_EQ(t.ById("a").props, c.props) << c.body << " / " << buffer;
      EXPECT_EQ(t.ById("a").length, xml.size() - end.size() - Header(9).size());
    }
  }
}

TEST(IndexTextTest, UnescapeReferencesAndEntities) {
  auto u = [](std::string s) {
    UnescapeIndexText(&s);
    return s;
  };
  EXPECT_EQ(u("&#65;"), "A");
  EXPECT_EQ(u("&#x141;"), "A");    // only the low 8 bits
  EXPECT_EQ(u("&#38;#65;"), "A");  // a decoded "&" starts a new reference
  EXPECT_EQ(u("&&#35;66;"), "B");  // and a decoded "#" finishes one
  EXPECT_EQ(u("a &# b"), "a &# b");
  EXPECT_EQ(u("&#65;&#"), "A&#");
  EXPECT_EQ(u("&amp;lt; &lt;&gt; &quot;&apos;"), "&lt; <> &quot;&apos;");
  EXPECT_EQ(u("&#38;lt;"), "<");
  EXPECT_EQ(u(""), "");
  // Reading from the file's bytes into a buffer gives the same as in place.
  std::string out = "stale";
  for (std::string text :
       {"", "plain", "&", "a&", "&lt", "&am;", "&&lt;&&gt;&", "&amp;lt; &lt;&gt; x", "&lt;&#65;",
        "&#38;#65; &gt;", "&quot;&apos;&AMP;"}) {
    UnescapeIndexText(text, &out);
    EXPECT_EQ(out, u(text)) << text;
  }
}

TEST(IndexTextTest, LastUidForms) {
  uint32_t v = 0;
  EXPECT_EQ(ParseLastUID(&v, "x0000002a"), 1);
  EXPECT_EQ(v, 42u);
  EXPECT_EQ(ParseLastUID(&v, "42"), 0);
  EXPECT_EQ(v, 42u);
  EXPECT_EQ(ParseLastUID(&v, "052"), 0);
  EXPECT_EQ(v, 0x52u);
  EXPECT_EQ(ParseLastUID(&v, "x1ffffffff"), 1);
  EXPECT_EQ(v, 0xFFFFFFFFu);
  EXPECT_EQ(ParseSignedDecimal("-12x"), -12);
  EXPECT_EQ(ParseSignedDecimal("---"), 0);
  EXPECT_EQ(ParseSignedDecimal("99999999999"), 2147483647);
  EXPECT_TRUE(IsTombstoneValue("---"));
  EXPECT_FALSE(IsTombstoneValue("-a-"));
  EXPECT_FALSE(IsTombstoneValue(""));
}

}  // namespace
}  // namespace qaaisp::persist
