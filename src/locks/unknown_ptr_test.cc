#include "locks/unknown_ptr.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "locks/file_mutexes.h"

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

TEST(UnknownPtrTest, ComparesByAddress) {
  std::vector<std::string> log;
  Tracked* objects[2] = {new Tracked(&log), new Tracked(&log)};
  if (objects[1] < objects[0]) std::swap(objects[0], objects[1]);
  UnknownPtr<Tracked> low(objects[0]), high(objects[1]);
  EXPECT_TRUE(low < high);
  EXPECT_TRUE(high > low);
  EXPECT_TRUE(low != high);
  EXPECT_TRUE(low < objects[1]);
  EXPECT_FALSE(low > objects[1]);
  EXPECT_TRUE(low == objects[0]);
}

TEST(FileMutexesTest, TableExistsAndStaysEmpty) {
  EXPECT_TRUE(fileMutexes().empty());
  MutexLock lock(&fileMutexesMutex());
  EXPECT_EQ(lock.state(), StatusLocked);
}

}  // namespace
}  // namespace qaaisp
