// A process that takes, holds, waits for and drops index block files through
// the library's exports, driven by the cross-process tests.
//
//   hold <path>          take with a handle, print "held <r>", drop on "release"
//   orphan <path>        take with a handle, print "held <r>", then die by SIGKILL
//   wait <path> <keep>   wait, print "result <r> sleeps <n>", then drop
//   step <path>          as wait with keep 1, but after each sleep print
//                        "sleep <n>" and go on only when a line arrives
//   unblock <path>       delete without a handle, print "result <r> sleeps <n>"
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include "platform/env.h"
#include "qaaisp/qaaisp.h"

namespace {

// Counts the library's sleeps (which still pass, scaled) and can stop after
// each one until the test lets it go on.
class CountingEnv : public qaaisp::platform::EnvWrapper {
 public:
  CountingEnv(bool step) : EnvWrapper(qaaisp::platform::Env::Default()), step_(step) {}
  void SleepMs(uint32_t ms) override {
    EnvWrapper::SleepMs(ms);
    int n = ++sleeps_;
    if (step_) {
      std::printf("sleep %d\n", n);
      std::fflush(stdout);
      std::string line;
      std::getline(std::cin, line);
    }
  }
  int sleeps() const { return sleeps_; }

 private:
  bool step_;
  std::atomic<int> sleeps_{0};
};

void Print(const char* what, int result, int sleeps) {
  std::printf("%s %d sleeps %d\n", what, result, sleeps);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const std::string command = argv[1];
  const char* path = argv[2];
  CountingEnv env(command == "step");
  qaaisp::platform::Env::SetDefaultForTesting(&env);
  QA_HANDLE handle = nullptr;

  if (command == "hold" || command == "orphan") {
    int r = WaitForAccessToIndexFileEx(path, 1, &handle);
    std::printf("held %d\n", r);
    std::fflush(stdout);
    if (command == "orphan") raise(SIGKILL);
    std::string line;
    while (std::getline(std::cin, line) && line != "release") {
    }
    std::printf("released %d\n", UnBlockIndexFileAccessEx(path, 1, &handle));
    std::fflush(stdout);
  } else if (command == "wait" || command == "step") {
    int keep = command == "step" ? 1 : (argc > 3 ? std::atoi(argv[3]) : 1);
    int r = WaitForAccessToIndexFileEx(path, keep, &handle);
    Print("result", r, env.sleeps());
    if (r == 1) UnBlockIndexFileAccessEx(path, keep, &handle);
  } else if (command == "unblock") {
    int r = UnBlockIndexFileAccessEx(path, 0, &handle);
    Print("result", r, env.sleeps());
  } else {
    return 2;
  }
  qaaisp::platform::Env::SetDefaultForTesting(nullptr);
  return 0;
}
