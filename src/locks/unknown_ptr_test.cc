#include "locks/unknown_ptr.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qaaisp {
namespace {

struct Tracked : UnknownObject {
  explicit Tracked(std::vector<std::string>* log) : log(log) {}
  ~Tracked() override { log->push_back("deleted"); }
  void FinalRelease() override { log->push_back("final release"); }
  std::vector<std::string>* log;
};

TEST(UnknownPtrTest, OwnsOneReferenceAndReleasesAtZero) {
  std::vector<std::string> log;
  auto* object = new Tracked(&log);
  {
    UnknownPtr<Tracked> a(object);
    EXPECT_EQ(object->reference_count(), 1);
    UnknownPtr<Tracked> b(a);
    EXPECT_EQ(object->reference_count(), 2);
    b = object;  // the pointer it already holds: no change
    EXPECT_EQ(object->reference_count(), 2);
    UnknownWeakPtr<Tracked> weak(object);
    EXPECT_EQ(object->reference_count(), 2);
    EXPECT_TRUE(weak == a);
    b = nullptr;
    EXPECT_TRUE(b.IsNull());
    EXPECT_EQ(object->reference_count(), 1);
    EXPECT_TRUE(log.empty());
  }
  EXPECT_EQ(log, (std::vector<std::string>{"final release", "deleted"}));
}

TEST(UnknownPtrTest, AssignmentThroughTheWeakBaseKeepsCountsRight) {
  std::vector<std::string> log;
  auto* first = new Tracked(&log);
  auto* second = new Tracked(&log);
  UnknownPtr<Tracked> keep_second(second);
  {
    UnknownPtr<Tracked> strong(first);
    UnknownWeakPtr<Tracked>& base = strong;
    base = second;  // dispatches to the strong pointer's Set
    EXPECT_EQ(log, (std::vector<std::string>{"final release", "deleted"}));
    EXPECT_EQ(second->reference_count(), 2);
  }
  EXPECT_EQ(second->reference_count(), 1);
}

}  // namespace
}  // namespace qaaisp
